#include "app/inputs.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "app/options.h"
#include "host/datasets.h"
#include "host/json.h"
#include "host/lists.h"
#include "host/storage.h"

namespace fmsd::app {

namespace {

namespace fs = std::filesystem;

constexpr char kForms[] = "write LIB.MEMBER, MEMBER or the path of a .csv file";

std::string upper(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

std::string lower(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

bool is_path(std::string_view s) {
  return s.find('/') != std::string_view::npos || (s.size() > 4 && lower(s.substr(s.size() - 4)) == ".csv");
}

std::string rule(int longest) {
  return "a name is a letter or underscore, then letters, digits or underscores, at most " + std::to_string(longest) +
         " characters";
}

bool present(const fs::path& p) {
  std::error_code ec;
  return fs::exists(p, ec);
}

// The host opens member SALES as sales.csv, or as the one file whose name
// differs from it only in case; a path must mean the file the host will use.
void check_case(const DataSetName& d, const fs::path& file) {
  const std::string stem = file.stem().string();
  if (stem == lower(stem)) return;
  const fs::path folded = file.parent_path() / (lower(stem) + file.extension().string());
  std::error_code ec;
  if (present(folded) && !fs::equivalent(folded, file, ec))
    throw UsageError(d.option + " " + d.given + ": " + folded.string() + " is there too, and the host would use it");
  if (!present(file))
    throw UsageError(d.option + " " + d.given + ": a new CSV file is named in lower case; write " + folded.string());
}

}  // namespace

void DataNames::bind(std::string_view spec) {
  const std::size_t equals = spec.find('=');
  if (equals == std::string_view::npos || equals == 0 || equals + 1 == spec.size())
    throw UsageError("--lib wants NAME=PATH, not '" + std::string(spec) + "'");
  const std::string name(spec.substr(0, equals));
  const std::string path(spec.substr(equals + 1));
  if (!host::valid_library_name(name))
    throw UsageError("--lib " + std::string(spec) + ": '" + name + "' is not a library name: " + rule(8));
  if (!bound_.insert(upper(name)).second) throw UsageError("--lib " + name + " is given twice");
  std::error_code ec;
  std::string error;
  const bool done = fs::is_directory(path, ec) ? datasets_.bind_directory(name, path, error)
                                                : datasets_.bind_database(name, path, error);
  if (!done) throw UsageError("--lib " + std::string(spec) + ": " + error);
}

void DataNames::resolve(std::vector<DataSetName>& names) {
  // Two-level names first, so that one naming an unbound library is refused
  // before a library made for a path could take that name.
  for (DataSetName& d : names) {
    if (is_path(d.given)) continue;
    const std::size_t dot = d.given.find('.');
    const std::string library = dot == std::string::npos ? "WORK" : d.given.substr(0, dot);
    const std::string member = dot == std::string::npos ? d.given : d.given.substr(dot + 1);
    if (member.find('.') != std::string::npos || library.empty() || member.empty())
      throw UsageError(d.option + " " + d.given + ": not a data set name; " + kForms);
    if (!host::valid_library_name(library))
      throw UsageError(d.option + " " + d.given + ": '" + library + "' is not a library name: " + rule(8));
    if (!host::valid_member_name(member))
      throw UsageError(d.option + " " + d.given + ": '" + member + "' is not a member name: " + rule(32));
    if (datasets_.library(library) == nullptr)
      throw UsageError(d.option + " " + d.given + ": library " + upper(library) + " is not bound; give --lib " +
                       upper(library) + "=PATH");
    d.name = upper(library) + "." + member;
  }
  for (DataSetName& d : names) {
    if (!is_path(d.given)) continue;
    const fs::path file(d.given);
    if (lower(file.extension().string()) != ".csv")
      throw UsageError(d.option + " " + d.given + ": a path must name a .csv file; " + kForms);
    const std::string member = file.stem().string();
    if (!host::valid_member_name(member))
      throw UsageError(d.option + " " + d.given + ": the file name '" + member + "' cannot be a member name: " +
                       rule(32));
    std::error_code ec;
    const fs::path directory = fs::absolute(file, ec).parent_path().lexically_normal();
    if (ec || !fs::is_directory(directory, ec))
      throw UsageError(d.option + " " + d.given + ": there is no directory " + directory.string());
    check_case(d, file);
    d.path = true;
    d.name = library_for(directory.string()) + "." + member;
  }
}

// The library made for a directory of .csv paths: one per directory, named
// CSV1, CSV2, ... past every library already bound.
std::string DataNames::library_for(const std::string& directory) {
  for (const auto& [path, library] : directories_)
    if (path == directory) return library;
  std::string library;
  for (int n = static_cast<int>(directories_.size()) + 1;; ++n) {
    library = "CSV" + std::to_string(n);
    if (datasets_.library(library) == nullptr) break;
  }
  std::string error;
  if (!datasets_.bind_directory(library, directory, error)) throw UsageError(directory + ": " + error);
  directories_.emplace_back(directory, library);
  return library;
}

host::List& load_parameters(host::ListRegistry& lists, std::string_view option, const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  const bool inline_text = first != std::string::npos && (text[first] == '{' || text[first] == '[');
  std::string json = text;
  const std::string where = std::string(option) + (inline_text ? "" : " " + text);
  if (!inline_text) {
    std::error_code ec;
    if (fs::is_directory(text, ec)) throw UsageError(where + ": is a directory, not a JSON file");
    std::ifstream in(text, std::ios::binary);
    if (!in) throw UsageError(where + ": cannot read the file: " + std::strerror(errno));
    std::ostringstream content;
    content << in.rdbuf();
    if (in.bad()) throw UsageError(where + ": cannot read the file");
    json = content.str();
  }
  host::List* list = nullptr;
  try {
    list = &host::json_to_list(lists, json);
  } catch (const host::JsonError& e) {
    throw UsageError(where + ": " + e.what());
  }
  for (const auto& item : list->items()) {
    if (item->name.empty()) {
      lists.free(*list);
      throw UsageError(where + ": the parameters must be a JSON object of named items ({\"NAME\": value, ...})");
    }
  }
  return *list;
}

}  // namespace fmsd::app
