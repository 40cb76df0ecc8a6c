// Opening, counting and closing the data sets the services name, and the
// descriptors of the variables they write.
#include "services/dataset.h"

#include <cstdint>
#include <cstring>

#include "module/hostops.h"

namespace fmsd {
namespace {

constexpr int kNameLevels = 3;
constexpr int kNameBlock = 34;
constexpr int kLevelWidth = 8;

// A name part as znamdiv returns it: a 16-bit length, then the characters.
struct NamePart {
  int16_t length;
  char text[64];
};

// Copies at most eight characters of a name part over the blanks of its field.
void put_level(unsigned char* field, const NamePart& part) {
  int length = part.length;
  if (length > kLevelWidth) length = kLevelWidth;
  if (length > 0) std::memcpy(field, part.text, static_cast<std::size_t>(length));
}

void put_int(unsigned char* field, int value) { std::memcpy(field, &value, sizeof value); }

// A count is usable when the host gives one and it is at least 1.
bool count(fmsd_word handle, int attribute, int* value) {
  return xoinfo(handle, attribute, value) == 0 && *value >= 1;
}

}  // namespace

int opends(int mode, DataSetRecord* record) noexcept {
  unsigned char* request = record->request;
  std::memset(request, 0, FMSD_REQUEST_BYTES);
  put_int(request + FMSD_REQUEST_MODE, mode);
  put_int(request + FMSD_REQUEST_MINUS_ONE, -1);
  std::memset(request + FMSD_REQUEST_LEVEL1, ' ', kLevelWidth);
  std::memset(request + FMSD_REQUEST_LEVEL2, ' ', kLevelWidth);

  fmsd_word levels = 0;
  NamePart first{};
  NamePart last{};
  char block[kNameBlock + 30] = {};
  if (znamdiv(0, record->name, record->length, &levels, kNameLevels, reinterpret_cast<char*>(&first), block,
              reinterpret_cast<char*>(&last)) != 0)
    return -1;
  std::memcpy(request + FMSD_REQUEST_NAMEBLOCK, block, kNameBlock);
  put_level(request + FMSD_REQUEST_LEVEL2, last);
  put_level(request + FMSD_REQUEST_LEVEL1, first);

  if (xoopen(&record->access[FMSD_ACCESS_HANDLE], request) < 0) return -2;
  if ((mode & 1) == 0) return 0;

  // The data set stays open when a count is missing: the caller closes it.
  const fmsd_word handle = record->access[FMSD_ACCESS_HANDLE];
  if (!count(handle, FMSD_INFO_VARIABLES, &record->nvars)) return -3;
  if (!count(handle, FMSD_INFO_ROWS, &record->nobs) && !count(handle, FMSD_INFO_LOGICAL_ROWS, &record->nobs))
    return -4;
  return 0;
}

// Counts by reading every row through the handle's own request function; the
// data set is left at its end.
int getdsnobs(fmsd_word* access) noexcept {
  const fmsd_word dataset = access[FMSD_ACCESS_HANDLE];
  fmsd_word selection = 0;
  const int prepared = xvallv(dataset, &selection);
  if (prepared != 0) {
    xprrlog(0, prepared);
    return 0;
  }
  int n = 0;
  while (n <= 0x7FFFFFFE) {
    int status = FMSD_STATUS_END;
    auto* handle = reinterpret_cast<fmsd_word*>(access[FMSD_ACCESS_HANDLE]);
    if (handle != nullptr) {
      access[FMSD_ACCESS_REQUEST] = FMSD_REQUEST_READ_NEXT;
      access[FMSD_ACCESS_FLAGS] |= FMSD_ACCESS_COUNTED;
      auto* const* functions = reinterpret_cast<fmsd_request_fn* const*>(handle[FMSD_HANDLE_FUNCTIONS]);
      const int result = functions[FMSD_HANDLE_READ_SLOT](access);
      handle[FMSD_HANDLE_RESULT] = result;
      const bool counted = (access[FMSD_ACCESS_FLAGS] & FMSD_ACCESS_COUNTED) != 0;
      if (result == 0) {
        if (counted) ++handle[FMSD_HANDLE_ROWS];
        handle[FMSD_HANDLE_BUFFER] = access[FMSD_ACCESS_BUFFER];
        status = 0;
      } else {
        status = counted ? xofprc(access, result, 1) : result;
      }
    }
    if ((static_cast<std::uint32_t>(status) & FMSD_STATUS_MASK) == FMSD_STATUS_END) break;
    ++n;
  }
  return n;
}

void closeds(fmsd_word a, fmsd_word b, fmsd_word c) noexcept {
  const fmsd_word datasets[] = {a, b, c};
  for (const fmsd_word dataset : datasets) {
    if (dataset != 0) xoclose(dataset, 0);
  }
}

// Output variables are numeric doubles; one without an input counterpart gets the
// host's defaults, eight bytes, a 10.5 display and a blank label.
void getnamestr(const VariableEntry* entry, fmsd_vardesc* descriptor) noexcept {
  if (entry->input != nullptr) {
    std::memcpy(descriptor, entry->input, sizeof *descriptor);
  } else {
    xvnamei(descriptor);
    descriptor->type = 1;
    descriptor->length = 8;
    descriptor->format_decimals = 5;
    descriptor->format_width = 10;
    descriptor->name_kind = 1;
    descriptor->label = " ";
  }
  descriptor->name_length = entry->name_length;
  descriptor->name = entry->name;
}

}  // namespace fmsd
