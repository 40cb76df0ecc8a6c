#!/usr/bin/python3
"""Writes tests/data/calendar_reference.csv, reference dates for the host calendar.

Only Python's datetime does the calendar work, so the numbers are independent of
the C++ code.  datetime is proleptic Gregorian and keeps 29 February in 4000 and
8000; our calendar drops both, so:
  - those two days are never written;
  - daynumber = (date - 1960-01-01).days - (number of dropped days before date);
  - weekday (ISO, Monday = 1) is datetime's isoweekday() moved back one day per
    dropped day before the date, because every later date comes one day earlier
    in our count.  Every row therefore has a checked weekday.
Rows: 28 February, the last day of February and 1 March of every year 1582-9999;
the 1st, 28th and last day of every month in 1582-2100 and around every century;
and 5000 seeded random days.  Columns: year,month,day,daynumber,weekday.
"""
import calendar
import os
import random
from datetime import date, timedelta

EPOCH = date(1960, 1, 1)
DROPPED = [date(4000, 3, 1), date(8000, 3, 1)]  # first day after each dropped 29 Feb
FIRST, LAST = date(1582, 1, 1), date(9999, 12, 31)


def last_day(y, m):
    n = calendar.monthrange(y, m)[1]
    return 28 if m == 2 and y % 4000 == 0 else n


def wanted():
    days = set()
    for y in range(FIRST.year, LAST.year + 1):
        days.update({date(y, 2, 28), date(y, 2, last_day(y, 2)), date(y, 3, 1)})
    years = set(range(1582, 2101))
    for c in range(1600, 10001, 100):
        years.update({c - 1, c, c + 1})
    for y in years & set(range(FIRST.year, LAST.year + 1)):
        for m in range(1, 13):
            days.update({date(y, m, 1), date(y, m, 28), date(y, m, last_day(y, m))})
    rng = random.Random(19600101)
    span = (LAST - FIRST).days
    for _ in range(5000):
        d = FIRST + timedelta(days=rng.randint(0, span))
        if not (d.month == 2 and d.day == 29 and d.year % 4000 == 0):
            days.add(d)
    return sorted(days)


def main():
    out = os.path.join(os.path.dirname(__file__), "..", "tests", "data", "calendar_reference.csv")
    with open(out, "w") as f:
        f.write("year,month,day,daynumber,weekday\n")
        for d in wanted():
            dropped = sum(d >= x for x in DROPPED)
            weekday = (d.isoweekday() - 1 - dropped) % 7 + 1
            f.write(f"{d.year},{d.month},{d.day},{(d - EPOCH).days - dropped},{weekday}\n")


if __name__ == "__main__":
    main()
