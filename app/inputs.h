// What a command line names as data, turned into what the host knows: library
// bindings, two-level data set names and parameter lists.
#ifndef FMSD_APP_INPUTS_H
#define FMSD_APP_INPUTS_H

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace fmsd::host {
class DataSets;
class List;
class ListRegistry;
}  // namespace fmsd::host

namespace fmsd::app {

struct DataSetName {
  std::string option;  // "--in", for messages
  std::string given;   // as on the command line
  std::string name;    // LIB.MEMBER, as the service receives it
  bool path = false;   // a .csv path, bound to a library made for its directory
};

class DataNames {
 public:
  explicit DataNames(host::DataSets& datasets) : datasets_(datasets) {}

  // --lib NAME=PATH: a directory binds a CSV library, anything else an SQLite
  // database file.  UsageError when it cannot be bound.
  void bind(std::string_view spec);

  // Resolves the data set arguments of one command together, so that the
  // libraries made for .csv paths take names that no argument uses: each
  // directory of such paths becomes a library CSV1, CSV2, ...  Fills `name` and
  // `path` of each; UsageError for a name that cannot reach a data set.
  void resolve(std::vector<DataSetName>& names);

 private:
  std::string library_for(const std::string& directory);

  host::DataSets& datasets_;
  std::set<std::string> bound_;                                     // upper-case library names
  std::vector<std::pair<std::string, std::string>> directories_;    // directory, library made for it
};

// A JSON object, inline when it starts with '{', else the file of that name, as
// a new list of the registry.  UsageError names the option and what is wrong.
host::List& load_parameters(host::ListRegistry& lists, std::string_view option, const std::string& text);

}  // namespace fmsd::app

#endif
