// Internal to the storage backends: the text forms of cells that CSV files and
// SQLite databases share, names in messages, and a CSV reader with a chosen
// buffer size so that the fuzz target drives small inputs across buffer ends.
#ifndef FMSD_HOST_STORAGE_DETAIL_H
#define FMSD_HOST_STORAGE_DETAIL_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "host/storage.h"

namespace fmsd::host::detail {

// A number, with blanks around it and a leading '+' allowed.  False for anything
// else, an empty text included (the caller decides what missing looks like).
bool parse_number(std::string_view text, double& value) noexcept;

// "YYYY-MM-DD" (a year of 4 or 5 digits) at p: the day number and the end of
// the date, or null when there is no calendar day there.
const char* scan_date(const char* p, const char* end, double& day) noexcept;
// A date, then 'T' or a space and "HH:MM" with optional ":SS" and fraction: seconds
// from 1960-01-01T00:00:00.  A date alone is midnight; has_time tells them apart.
const char* scan_datetime(const char* p, const char* end, double& seconds, bool& has_time) noexcept;

// Buffer sizes that always hold the text of a date or a datetime.
inline constexpr std::size_t kDateChars = 12;
inline constexpr std::size_t kDateTimeChars = 400;
// Write the ISO text at out and return its end; null when the value has no date
// in the calendar.  A fraction of a day is dropped from a date; a datetime keeps
// the shortest fraction of a second that reads back to the same double.
char* format_date(double day, char* out) noexcept;
char* format_datetime(double seconds, char separator, char* out) noexcept;

// Names in lower case: member files and tables are named so, and names are
// compared so.
std::string lower(std::string_view name);

// A name or cell as messages show it: quoted, control bytes escaped, long texts cut.
std::string show(std::string_view text);
// What a valid name looks like, for messages.
std::string name_rule(std::size_t longest);

std::unique_ptr<Reader> open_csv_file(const std::string& path, std::size_t buffer_bytes, std::string& error);

}  // namespace fmsd::host::detail

#endif
