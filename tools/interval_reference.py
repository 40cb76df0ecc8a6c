#!/usr/bin/python3
"""Writes tests/data/interval_reference.csv, reference results for advancing and
counting time IDs by calendar intervals.

The expectations come from walks over Python's datetime calendar, not from the
interval arithmetic of the C++ code: to find the interval that holds a time ID we
step back one unit (day, ten-day period, half month, month, second, minute, hour)
at a time until we reach a unit that begins an interval, and to count intervals we
walk the units between two time IDs and count the ones that begin an interval.

Which unit begins an interval.  Every interval spans m units; with a shift j
(written "NAME<mult>.<j>", k = j - 1, k = 0 without a shift) the intervals are the
blocks of m consecutive units whose first unit lies k units after a multiple of m,
counting units from the origin:
  - days from day 0 = 1 January 1960 (DAY: m = mult);
  - months from month 0 = January 1960 (MONTH: m = mult, QTR: 3 mult,
    SEMIYEAR: 6 mult, YEAR: 12 mult, all in months), so a unit with index x begins
    an interval when (x - k) is a multiple of m: "QTR" begins in January, April, July
    and October, "YEAR.7" runs from July to June, "MONTH3.2" begins in February, May,
    August and November;
  - ten-day periods (days 1-10, 11-20, 21 to the end of the month; three per month)
    and half months (days 1-15 and 16 to the end; two per month), numbered from the
    first period of January 1960, with m = mult;
  - seconds, minutes and hours from midnight of day 0, with m = mult of those units;
  - working days for WEEKDAY: the working day index counts working days after day 0
    (1 at the first working day after 1 January 1960, 0 on that day itself), so a
    working day begins an interval when (index - k) is a multiple of mult;
  - WEEK: the week is anchored on Sunday 27 December 1959: "WEEKmult.j" intervals
    begin on the j-th day counted from that Sunday (so j = 2 is Monday, j = 8 the
    following Sunday) and every 7 mult days before and after it.
Observation intervals begin at multiples of mult; a shift plays no part there.

Calendar.  Ours is Gregorian except that years divisible by 4000 are common years,
with day 0 = 1 January 1960.  datetime is proleptic Gregorian and keeps 29 February
4000 and 8000, so a Python date maps to our day number by subtracting one for each of
those dropped days before it, and those two dates never appear.  The day of week of
our day d is that of day d in an unbroken count of days from 1960-01-01, and it
repeats every 7 days, so day-based intervals need no calendar and are checked over our
whole range (1 January 1582 = day -138061 to 31 December 20000 = day 6589335).
Month-based intervals are checked up to 9999, where datetime ends.  A start or a
result outside our range is missing.

Rows (header: op,text,a,b,next,count; missing written as "."):
  nx,TEXT,start,n,next,count   next = the first time ID of the interval n intervals
                               after the one that holds start; count = the count of
                               intervals from start to next, which is n (empty when
                               next is missing)
  ck,TEXT,from,to,,count       count = intervals crossed from `from` to `to`
"""
import math
import os
import random
from datetime import date, timedelta

EPOCH = date(1960, 1, 1)
DROPPED = (date(4000, 2, 29), date(8000, 2, 29))
FIRST_DAY = -138061  # 1 January 1582
LAST_DAY = 6589335  # 31 December 20000
SECONDS_PER_DAY = 86400
MAX_N = 2147483647


def day_of(p):
    return (p - EPOCH).days - sum(p > x for x in DROPPED)


def date_of(d):
    p = EPOCH + timedelta(days=d)
    for x in DROPPED:
        if p >= x:
            p += timedelta(days=1)
    return p


def check_calendar():
    assert day_of(date(1582, 1, 1)) == FIRST_DAY
    assert day_of(date(1959, 12, 27)) == -5 and date(1959, 12, 27).isoweekday() == 7
    for x in DROPPED:
        before, after = x - timedelta(days=1), x + timedelta(days=1)
        assert day_of(after) == day_of(before) + 1
    for d in list(range(-200, 200)) + [day_of(x) + i for x in DROPPED for i in range(-400, 400)]:
        assert day_of(date_of(d)) == d

    # 31 December 20000 from the year count alone: days before 1 January of year y,
    # Gregorian, less one for each year divisible by 4000 that lies before y.
    def days_before(y):
        y -= 1
        return 365 * y + y // 4 - y // 100 + y // 400 - y // 4000

    assert days_before(20001) - 1 - days_before(1960) == LAST_DAY


PY_LAST = day_of(date(9999, 12, 31))
# Sunday = 1 ... Saturday = 7 for day numbers 0..6; the week repeats every 7 days.
WEEKDAY_OF = [(EPOCH + timedelta(days=r)).isoweekday() % 7 + 1 for r in range(7)]


def weekday(d):
    return WEEKDAY_OF[d % 7]


class Drop(Exception):
    """The case needs a date that datetime cannot hold."""


# ---- interval specifications -------------------------------------------------------

NAMES = {
    'OBS': ['OBS'],
    'SECOND': ['SECOND', 'SECONDS', 'SEC'],
    'MINUTE': ['MINUTE', 'MINUTES', 'MIN'],
    'HOUR': ['HOUR', 'HOURLY', 'HOURS', 'HR'],
    'DAY': ['DAY', 'DAILY', 'DAYS'],
    'WEEKDAY': ['WEEKDAY', 'WEEKDAYS'],
    'WEEK': ['WEEK', 'WEEKLY', 'WEEKS'],
    'TENDAY': ['TENDAY'],
    'SEMIMONTH': ['SEMIMONTH', 'SEMIMONTHLY', 'SEMIMONTHS', 'SEMIMON'],
    'MONTH': ['MONTH', 'MONTHLY', 'MONTHS', 'MON'],
    'QTR': ['QTR', 'QUARTER', 'QUARTERLY', 'QUARTERS', 'QTRLY', 'QTRS'],
    'SEMIYEAR': ['SEMIYEAR', 'SEMIYEARLY', 'SEMIYEARS', 'SEMIYR', 'SEMIANNUAL', 'SEMIANN'],
    'YEAR': ['YEAR', 'YEARS', 'YEARLY', 'YR', 'ANNUAL', 'ANNUALLY', 'ANNUALS'],
}
TIME_UNIT = {'SECOND': 1, 'MINUTE': 60, 'HOUR': 3600}
DAY_CODES = ('DAY', 'WEEKDAY', 'WEEK')
# Periods per month and months per unit of the multiplier.
PERIODS = {'TENDAY': 3, 'SEMIMONTH': 2, 'MONTH': 1, 'QTR': 1, 'SEMIYEAR': 1, 'YEAR': 1}
MONTHS = {'QTR': 3, 'SEMIYEAR': 6, 'YEAR': 12}
# A shift counts months for QTR, SEMIYEAR and YEAR, days for WEEK, units otherwise.
SHIFT_FACTOR = {'QTR': 3, 'SEMIYEAR': 6, 'YEAR': 12, 'WEEK': 7}
# Weekend digits (1 = Sunday ... 7 = Saturday) written before the W; None = default.
WEEKENDS = [None, '17', '1', '7', '67', '71', '23', '135', '4', '123456', '234567', '56', '1177', '2']


class Spec:
    def __init__(self, code, kind, mult, shift, weekend, text):
        self.code, self.kind, self.mult, self.text = code, kind, mult, text
        self.k = shift - 1 if shift else 0
        off = set(weekend) if weekend is not None else {'1', '7'}
        self.working = [str(weekday(r)) not in off for r in range(7)]
        # Working days before day r of the first week after day 0, r = 0..6.
        self.w = sum(self.working)
        self.wfirst = [sum(self.working[i] for i in range(1, r + 1)) for r in range(7)]
        if code == 'WEEK':
            self.m = 7 * mult
        elif code in PERIODS:
            self.m = MONTHS.get(code, 1) * mult
        else:
            self.m = mult


def make_text(rng, code, prefix, mult_text, shift_text, weekend, upper):
    names = [prefix + name + ('' if weekend is None else weekend + rng.choice('Ww')) + mult_text + shift_text
             for name in NAMES[code]]
    names = [t for t in names if len(t) <= 21]
    if not names:
        return None
    text = rng.choice(names)
    if not upper:
        text = rng.choice([str.lower, str.title])(text)
    return text


def random_spec(rng, code, kind=None):
    if code == 'BARE':
        mult = rng.choice([1, 2, 3, 5, 7, 12, 13, 52, 1000, 32767])
        return Spec('OBS', 'o', mult, 0, None, str(mult))
    if code == 'OBS':
        kind = 'o'
        prefix = ''
    elif code in TIME_UNIT:
        kind = 's'
        prefix = rng.choice(['', '', 'DT', 'T'])
    else:
        if kind is None:
            kind = 'd' if rng.random() < 0.7 else 's'
        prefix = rng.choice(['DT', 'T']) if kind == 's' else ''
    r = rng.random()
    if r < 0.35:
        mult, mult_text = 1, ''
    elif r < 0.38:
        mult, mult_text = 1, rng.choice(['0', '1', '00'])
    else:
        mult = rng.randint(1, 13)
        mult_text = ('0' if rng.random() < 0.03 else '') + str(mult)
    shift_max = SHIFT_FACTOR.get(code, 1) * mult
    r = rng.random()
    if r < 0.45:
        shift, shift_text = 0, ''
    elif r < 0.48:
        shift, shift_text = 0, '.'
    else:
        shift = rng.randint(1, shift_max)
        shift_text = '.' + ('0' if rng.random() < 0.03 else '') + str(shift)
    weekend = rng.choice(WEEKENDS) if code == 'WEEKDAY' else None
    text = make_text(rng, code, prefix, mult_text, shift_text, weekend, rng.random() < 0.85)
    if text is None:
        return random_spec(rng, code, kind)
    return Spec(code, kind, mult, shift, weekend, text)


# ---- units and interval starts -----------------------------------------------------

def working_index(spec, d):
    """Working days in (0, d] (negative: minus those in (d, 0]).  Every run of seven
    consecutive days holds spec.w working days, so whole weeks are skipped."""
    weeks, r = divmod(d, 7)
    return weeks * spec.w + spec.wfirst[r]


def day_begins(spec, d):
    if spec.code == 'DAY':
        return (d - spec.k) % spec.m == 0
    if spec.code == 'WEEK':
        if weekday(d) != spec.k % 7 + 1:
            return False
        return (d - (-5 + spec.k)) // 7 % spec.mult == 0
    return spec.working[d % 7] and (working_index(spec, d) - spec.k) % spec.mult == 0


def period_of(spec, d):
    p = date_of(d)
    per = PERIODS[spec.code]
    if per == 3:
        part = 0 if p.day <= 10 else 1 if p.day <= 20 else 2
    elif per == 2:
        part = 0 if p.day <= 15 else 1
    else:
        part = 0
    return [p.year, p.month, part]


def period_begins(spec, pos):
    y, mo, part = pos
    index = (12 * (y - 1960) + mo - 1) * PERIODS[spec.code] + part
    return (index - spec.k) % spec.m == 0


def period_step(spec, pos, sign):
    y, mo, part = pos
    per = PERIODS[spec.code]
    part += sign
    if part == per:
        part, mo = 0, mo + 1
    elif part < 0:
        part, mo = per - 1, mo - 1
    if mo == 13:
        mo, y = 1, y + 1
    elif mo == 0:
        mo, y = 12, y - 1
    return [y, mo, part]


def period_first_day(spec, pos):
    y, mo, part = pos
    if y < 1582:
        return None
    if y > 9999:
        raise Drop
    first = {3: (1, 11, 21), 2: (1, 16), 1: (1,)}[PERIODS[spec.code]][part]
    return day_of(date(y, mo, first))


def in_range(d):
    return FIRST_DAY <= d <= LAST_DAY


# ---- the two operations ------------------------------------------------------------

def settle(x):
    return x if isinstance(x, int) else math.floor(x + 1e-12)


def advance(spec, start, n):
    """The first time ID of the interval n intervals after the one holding start."""
    if abs(n) > MAX_N:
        return None
    # A start or n a hair below a whole number, as a sum of steps can leave it,
    # counts as that number; the IEEE sum is the same as the C++ one.
    start, n = settle(start), settle(n)
    if spec.code == 'OBS':
        if spec.kind != 'o':
            return None
        x = start
        while x % spec.mult:
            x -= 1
        return x + n * spec.mult
    if spec.code in TIME_UNIT:
        unit = TIME_UNIT[spec.code]
        u = start // unit
        while (u - spec.k) % spec.mult:
            u -= 1
        return (u + n * spec.mult) * unit
    d = start // SECONDS_PER_DAY if spec.kind == 's' else start
    if not in_range(d):
        return None
    if spec.code in DAY_CODES:
        while not day_begins(spec, d):
            d -= 1
        if spec.code == 'WEEKDAY':
            steps = n * spec.mult
            while steps:
                sign = 1 if steps > 0 else -1
                d += sign
                while not spec.working[d % 7]:
                    d += sign
                steps -= sign
        else:
            d += n * spec.m
        result = d
    else:
        if d > PY_LAST:
            raise Drop
        pos = period_of(spec, d)
        while not period_begins(spec, pos):
            pos = period_step(spec, pos, -1)
        steps = n * spec.m
        per_year = 12 * PERIODS[spec.code]
        while abs(steps) >= per_year:
            sign = 1 if steps > 0 else -1
            pos[0] += sign
            steps -= sign * per_year
        while steps:
            sign = 1 if steps > 0 else -1
            pos = period_step(spec, pos, sign)
            steps -= sign
        result = period_first_day(spec, pos)
        if result is None:
            return None
    if not in_range(result):
        return None
    return result * SECONDS_PER_DAY if spec.kind == 's' else result


def count(spec, a, b):
    """Intervals begun in (a, b], negated when b lies before a."""
    if max(abs(a), abs(b)) > 1.3407807929942597e+152:
        return None
    a, b = math.floor(a), math.floor(b)
    if spec.code == 'OBS':
        if spec.kind != 'o':
            return None
        begins, lo, hi = (lambda x: x % spec.mult == 0), a, b
    elif spec.code in TIME_UNIT:
        unit = TIME_UNIT[spec.code]
        begins, lo, hi = (lambda u: (u - spec.k) % spec.mult == 0), a // unit, b // unit
    else:
        if spec.kind == 's':
            a, b = a // SECONDS_PER_DAY, b // SECONDS_PER_DAY
        if not (in_range(a) and in_range(b)):
            return None
        if spec.code in DAY_CODES:
            begins, lo, hi = (lambda d: day_begins(spec, d)), a, b
        else:
            if max(a, b) > PY_LAST:
                raise Drop
            sign = 1 if b >= a else -1
            pos, end = period_of(spec, min(a, b)), period_of(spec, max(a, b))
            total = 0
            while pos != end:
                pos = period_step(spec, pos, 1)
                total += period_begins(spec, pos)
            return sign * total
    sign = 1 if hi >= lo else -1
    lo, hi = min(lo, hi), max(lo, hi)
    return sign * sum(1 for x in range(lo + 1, hi + 1) if begins(x))


# ---- sampling ----------------------------------------------------------------------

DATE_CODES = ['DAY', 'WEEKDAY', 'WEEK', 'TENDAY', 'SEMIMONTH', 'MONTH', 'QTR', 'SEMIYEAR', 'YEAR']
CODE_WEIGHTS = [('DAY', 10), ('WEEKDAY', 13), ('WEEK', 14), ('TENDAY', 8), ('SEMIMONTH', 8),
                ('MONTH', 10), ('QTR', 8), ('SEMIYEAR', 6), ('YEAR', 10), ('SECOND', 3),
                ('MINUTE', 3), ('HOUR', 4), ('OBS', 2), ('BARE', 1)]


def random_day(rng, spec):
    last = LAST_DAY if spec.code in DAY_CODES else PY_LAST
    r = rng.random()
    if r < 0.35:
        return rng.randint(FIRST_DAY, last)
    if r < 0.5:
        return rng.randint(-3000, 3000)
    if r < 0.6:
        return FIRST_DAY + rng.randint(0, 1500)
    if r < 0.7:
        return min(last, PY_LAST) - rng.randint(0, 1500)
    if r < 0.75 and spec.code in DAY_CODES:
        return LAST_DAY - rng.randint(0, 1500)
    if r < 0.85:
        return day_of(rng.choice(DROPPED)) + rng.randint(-400, 400)
    # the first day of a month, ten-day period or half month, or the day before it
    p = date_of(rng.randint(FIRST_DAY, PY_LAST))
    first = day_of(date(p.year, p.month, rng.choice([1, 1, 11, 16, 21])))
    return first - rng.randint(0, 1)


def random_time_id(rng, spec, day=None):
    if spec.code == 'OBS':
        x = rng.choice([rng.randint(-100, 100), rng.randint(-10 ** 6, 10 ** 6), rng.randint(-10 ** 12, 10 ** 12)])
    elif spec.code in TIME_UNIT:
        r = rng.random()
        if r < 0.3:
            x = rng.randint(-10 ** 6, 10 ** 6)
        elif r < 0.9:
            x = rng.randint(FIRST_DAY * SECONDS_PER_DAY, PY_LAST * SECONDS_PER_DAY)
        else:
            x = rng.randint(-10 ** 12, 10 ** 12)
    else:
        d = random_day(rng, spec) if day is None else day
        if spec.kind == 'd':
            x = d
        else:
            x = d * SECONDS_PER_DAY + rng.choice([0, SECONDS_PER_DAY - 1, rng.randint(0, SECONDS_PER_DAY - 1)])
    if rng.random() < 0.03:
        return x + rng.choice([0.25, 0.5, 0.75])
    return x


def random_n(rng, spec):
    r = rng.random()
    if r < 0.15:
        n = 0
    elif r < 0.35:
        n = rng.choice([-1, 1])
    elif r < 0.8:
        n = rng.randint(-20, 20)
    else:
        n = rng.randint(-400, 400)
    if spec.code == 'WEEKDAY':
        # each working day is one step of the walk
        n = max(-1000 // spec.mult, min(1000 // spec.mult, n))
    return n


def fmt(x):
    if x is None:
        return '.'
    if isinstance(x, float) and x == int(x) and abs(x) < 1e15:
        return str(int(x))
    return repr(x)


class Writer:
    def __init__(self):
        self.rows, self.nx, self.ck = [], 0, 0

    def nx_row(self, spec, start, n):
        try:
            result = advance(spec, start, n)
        except Drop:
            return False
        if result is None:
            back = ''
        elif settle(start) == math.floor(start):
            back = fmt(settle(n))
        else:  # counting floors the start without the allowance
            back = fmt(count(spec, start, result))
        self.rows.append(f'nx,{spec.text},{fmt(start)},{fmt(n)},{fmt(result)},{back}')
        self.nx += 1
        return True

    def ck_row(self, spec, a, b):
        try:
            c = count(spec, a, b)
        except Drop:
            return False
        self.rows.append(f'ck,{spec.text},{fmt(a)},{fmt(b)},,{fmt(c)}')
        self.ck += 1
        return True


def pick_code(rng):
    return rng.choices([c for c, _ in CODE_WEIGHTS], [w for _, w in CODE_WEIGHTS])[0]


def advancing(rng, out, total):
    while out.nx < total:
        spec = random_spec(rng, pick_code(rng))
        out.nx_row(spec, random_time_id(rng, spec), random_n(rng, spec))
    # long steps, across centuries: up to 3 million days or 100,000 months
    for _ in range(600):
        spec = random_spec(rng, rng.choice(['DAY', 'WEEK', 'MONTH', 'QTR', 'YEAR', 'TENDAY', 'SEMIMONTH']))
        start = random_time_id(rng, spec)
        if spec.code in DAY_CODES:
            n = rng.randint(-3_000_000, 3_000_000) // spec.m
        else:
            n = rng.randint(-100_000, 100_000) * PERIODS[spec.code] // spec.m
        out.nx_row(spec, start, n)
    # a fractional n is floored
    for _ in range(100):
        spec = random_spec(rng, pick_code(rng))
        out.nx_row(spec, random_time_id(rng, spec), rng.randint(-30, 30) + rng.choice([0.25, 0.5, 0.75]))
    # a start or n just below a whole number advances from that number
    for _ in range(200):
        spec = random_spec(rng, rng.choice(['OBS', 'BARE', 'DAY', 'WEEK', 'WEEKDAY', 'TENDAY', 'MONTH', 'SECOND']),
                           'd')
        k = rng.randint(-60, 60)
        if rng.random() < 0.7:
            out.nx_row(spec, k - 1e-13, rng.randint(-3, 3))
        else:
            out.nx_row(spec, k, rng.randint(-3, 3) - 1e-13)


def span_for(rng, spec):
    """A distance in time-ID units of up to a few thousand interval units."""
    units = math.floor(10 ** rng.uniform(0, 3.5))
    if spec.code == 'OBS':
        scale = 1
    elif spec.code in TIME_UNIT:
        scale = TIME_UNIT[spec.code]
    else:
        scale = {'TENDAY': 10, 'SEMIMONTH': 15}.get(spec.code, 30 if spec.code in PERIODS else 1)
        if spec.kind == 's':
            scale *= SECONDS_PER_DAY
    return rng.choice([-1, 1]) * (units * scale + rng.randint(0, scale))


def counting(rng, out, total):
    goal = out.ck + total
    while out.ck < goal:
        spec = random_spec(rng, pick_code(rng))
        a = random_time_id(rng, spec)
        out.ck_row(spec, a, a + span_for(rng, spec))
    # weeks begun in each year: 52, or 53 in years that hold 53 of the chosen weekday
    for y in range(1583, 10000):
        j = rng.randint(1, 7)
        spec = Spec('WEEK', 'd', 1, j, None, rng.choice(NAMES['WEEK']) + ('' if j == 1 else f'.{j}'))
        out.ck_row(spec, day_of(date(y - 1, 12, 31)), day_of(date(y, 12, 31)))
    # both sides of the first month of shifted years, quarters and half years
    for _ in range(3000):
        code = rng.choice(['YEAR', 'YEAR', 'SEMIYEAR', 'QTR'])
        spec = random_spec(rng, code)
        y = rng.randint(1583, 9998)
        month = (spec.k % 12) + 1
        first = day_of(date(y, month, 1))
        scale = SECONDS_PER_DAY if spec.kind == 's' else 1
        out.ck_row(spec, (first - 1) * scale, first * scale)
        out.ck_row(spec, first * scale, (first - 1) * scale)


def missing(rng, out):
    # starts or ends outside 1 January 1582 .. 31 December 20000
    for _ in range(120):
        spec = random_spec(rng, rng.choice(DATE_CODES))
        bad = rng.choice([FIRST_DAY - 1, FIRST_DAY - rng.randint(1, 10 ** 5), LAST_DAY + 1,
                          LAST_DAY + rng.randint(1, 10 ** 6)])
        good = random_time_id(rng, spec)
        bad_id = bad * SECONDS_PER_DAY + rng.randint(0, SECONDS_PER_DAY - 1) if spec.kind == 's' else bad
        out.nx_row(spec, bad_id, rng.randint(-5, 5))
        out.ck_row(spec, bad_id, good)
        out.ck_row(spec, good, bad_id)
    # steps that leave the range at its start
    for _ in range(150):
        spec = random_spec(rng, rng.choice(DATE_CODES))
        start = random_time_id(rng, spec, FIRST_DAY + rng.randint(0, 60))
        out.nx_row(spec, start, -rng.randint(1, 30))
    # steps that leave it at 31 December 20000 = day 6589335, counted without a calendar
    for text, start, n, result in [
        ('DAY', LAST_DAY, 0, LAST_DAY), ('DAY', LAST_DAY, 1, None), ('DAY', LAST_DAY - 10, 10, LAST_DAY),
        ('DAY', LAST_DAY - 10, 11, None), ('MONTH', LAST_DAY, 0, LAST_DAY - 30), ('MONTH', LAST_DAY, 1, None),
        ('MONTH', LAST_DAY, -1, LAST_DAY - 30 - 30), ('TENDAY', LAST_DAY, 0, LAST_DAY - 10),
        ('TENDAY', LAST_DAY - 11, 1, LAST_DAY - 10), ('TENDAY', LAST_DAY, 1, None),
        ('SEMIMONTH', LAST_DAY, 0, LAST_DAY - 15), ('SEMIMONTH', LAST_DAY, 1, None),
        # 20000 is a common year in this calendar: October to December hold 92 days,
        # July to December 184, the whole year 365
        ('QTR', LAST_DAY, 0, LAST_DAY - 91), ('QTR', LAST_DAY, 1, None),
        ('SEMIYEAR', LAST_DAY, 0, LAST_DAY - 183), ('YEAR', LAST_DAY, 0, LAST_DAY - 364),
        ('YEAR', LAST_DAY, 1, None), ('YEAR', LAST_DAY - 364, 0, LAST_DAY - 364),
        ('YEAR', LAST_DAY - 365, 0, LAST_DAY - 364 - 365),
    ]:
        out.rows.append(f'nx,{text},{start},{n},{fmt(result)},{"" if result is None else n}')
        dt = 'DT' + text
        secs = start * SECONDS_PER_DAY + 86399
        res = None if result is None else result * SECONDS_PER_DAY
        out.rows.append(f'nx,{dt},{secs},{n},{fmt(res)},{"" if result is None else n}')
        out.nx += 2
    # n beyond 32 bits, and steps whose day span would overflow
    for text, start, n in [('DAY', 0, 2147483648), ('MONTH', 0, -2147483648), ('WEEK', 100, 3e9),
                           ('DAY', 0, 2147483647), ('MONTH', 0, 100000000), ('WEEKDAY', 0, -2147483647),
                           ('HOUR', 0, 2147483648), ('OBS', 0, -3e9)]:
        out.rows.append(f'nx,{text},{start},{fmt(n)},.,')
        out.nx += 1
    # an observation step is bounded only by the size of n
    out.rows.append('nx,OBS,5,2147483647,2147483652,2147483647')
    out.rows.append('nx,OBS,-7,-2147483647,-2147483654,-2147483647')
    out.nx += 2
    # observation intervals on datetimes, and magnitudes beyond any time ID
    for text in ['DTOBS', 'TOBS', 'dtobs']:
        out.rows.append(f'nx,{text},{rng.randint(-10 ** 6, 10 ** 6)},{rng.randint(-5, 5)},.,')
        out.rows.append(f'ck,{text},{rng.randint(-10 ** 6, 10 ** 6)},{rng.randint(-10 ** 6, 10 ** 6)},,.')
        out.nx += 1
        out.ck += 1
    out.rows += ['ck,OBS,0,1e+153,,.', 'ck,OBS,-1e+153,0,,.',
                 'ck,OBS,1.3407807929942597e+152,0,,-1.3407807929942597e+152']
    out.ck += 3


def main():
    check_calendar()
    rng = random.Random(20000101)
    out = Writer()
    advancing(rng, out, 100_000)
    counting(rng, out, 22_000)
    missing(rng, out)
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'tests', 'data', 'interval_reference.csv')
    with open(path, 'w') as f:
        f.write('op,text,a,b,next,count\n')
        f.write('\n'.join(out.rows) + '\n')
    print(f'{out.nx} advancing and {out.ck} counting cases')


if __name__ == '__main__':
    main()
