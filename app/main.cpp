// fmsd: runs the forecasting module's services from the command line.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "app/commands.h"
#include "app/forecast.h"
#include "app/report.h"
#include "app/options.h"
#include "host/host.h"
#include "host/json.h"

namespace {

using fmsd::host::json_string;

constexpr char kUsageHead[] =
    "usage: fmsd [--module PATH] [--json] [--lib NAME=PATH]... COMMAND [options]\n"
    "\n"
    "commands:\n";

constexpr char kUsageTail[] =
    "  forecast   fit a regression forecasting model to one series and forecast it\n"
    "  report     write a self-contained HTML report on one series\n"
    "  info       load the module and show its image information and services\n"
    "  services   load the module and list the services it registers\n"
    "  --version  show the versions of fmsd and of the module\n"
    "  --help     show this text\n"
    "\n"
    "fmsd COMMAND --help documents a command's options and list items, with an example.\n"
    "--json shows info and services as JSON.  --lib binds a library name to a directory\n"
    "of CSV files or to an SQLite database file.  The module is libfmsd.so beside the\n"
    "program (../lib), or the file named by --module or by the environment variable\n"
    "FMSD_MODULE.\n";

std::string usage() {
  std::string text = kUsageHead;
  for (const fmsd::app::CommandSpec* c : fmsd::app::service_commands()) {
    std::string name = c->name;
    name.resize(11, ' ');
    text += "  " + name + c->summary + "\n";
  }
  return text + kUsageTail;
}

std::string field(const char* text, std::size_t size) { return std::string(text, strnlen(text, size)); }

void print_image(const fmsd::host::Module& m, bool json) {
  const fmsd_image_info& im = m.image();
  const std::string version = field(im.version, sizeof im.version);
  const std::string release = field(im.release, sizeof im.release);
  const std::string built = field(im.build_date, sizeof im.build_date);
  const std::string level = field(im.level, sizeof im.level);
  if (json) {
    std::printf("\"module\": {\"path\": %s, \"version\": %s, \"release\": %s, \"built\": %s, \"level\": %s, "
                "\"notice\": %s}",
                json_string(m.path()).c_str(), json_string(version).c_str(), json_string(release).c_str(),
                json_string(built).c_str(), json_string(level).c_str(), json_string(im.notice).c_str());
    return;
  }
  std::printf("module   %s\nversion  %s\nrelease  %s\nbuilt    %s\nlevel    %s\nnotice   %s\n", m.path().c_str(),
              version.c_str(), release.c_str(), built.c_str(), level.c_str(), im.notice);
}

void print_services(const fmsd::host::Module& m, bool json) {
  const auto& services = m.registration().services;
  if (json) {
    std::printf("\"services\": [");
    for (std::size_t i = 0; i < services.size(); ++i)
      std::printf("%s%s", i ? ", " : "", json_string(m.service_name(static_cast<int>(i))).c_str());
    std::printf("]");
    return;
  }
  std::printf("services (registration handle %ld):\n", static_cast<long>(m.registration().handle));
  for (std::size_t i = 0; i < services.size(); ++i)
    std::printf("  %zu  %s\n", i, m.service_name(static_cast<int>(i)).c_str());
}

// Global options may stand anywhere; the first other word is the command, and
// what follows it belongs to the command.
struct Line {
  fmsd::app::Settings settings;
  bool json = false;
  bool help = false;
  std::string command;
  std::vector<std::string> words;
};

// The value of --NAME VALUE or --NAME=VALUE when `word` is that option.
bool global(const std::string& word, const char* name, int argc, char** argv, int& i, std::string& value) {
  const std::string option = std::string("--") + name;
  if (word.compare(0, option.size() + 1, option + "=") == 0) {
    value = word.substr(option.size() + 1);
  } else if (word == option) {
    if (++i == argc) throw fmsd::app::UsageError(option + " needs a value");
    value = argv[i];
  } else {
    return false;
  }
  if (value.empty()) throw fmsd::app::UsageError(option + " is given an empty value");
  return true;
}

Line split(int argc, char** argv) {
  Line line;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    std::string value;
    if (global(a, "module", argc, argv, i, value)) {
      line.settings.module_path = value;
    } else if (global(a, "lib", argc, argv, i, value)) {
      line.settings.libraries.push_back(value);
    } else if (a == "--json") {
      line.json = true;
    } else if (a == "--help" || a == "-h") {
      line.help = true;
    } else if (line.command.empty()) {
      if (a != "--version" && a[0] == '-') throw fmsd::app::UsageError("unknown option " + a);
      line.command = a;
    } else {
      line.words.push_back(a);
      // A command option's value is never read as a global option.
      if (a.compare(0, 2, "--") == 0 && a.find('=') == std::string::npos && i + 1 < argc) line.words.push_back(argv[++i]);
    }
  }
  return line;
}

int module_command(const Line& line) {
  if (!line.words.empty()) {
    std::fprintf(stderr, "fmsd: %s takes no arguments, not '%s'\n%s", line.command.c_str(), line.words[0].c_str(),
                 usage().c_str());
    return 2;
  }
  fmsd::host::Host host;
  std::string error;
  const std::string module_path =
      line.settings.module_path.empty() ? fmsd::host::default_module_path() : line.settings.module_path;
  auto module = fmsd::host::Module::load(host, module_path, error);
  if (!module) {
    std::fprintf(stderr, "fmsd: cannot use the module: %s\n", error.c_str());
    return 1;
  }
  if (line.command == "--version") {
    const fmsd_image_info& im = module->image();
    std::printf("fmsd %s (module %s, built %s)\n", FMSD_VERSION, field(im.release, sizeof im.release).c_str(),
                field(im.build_date, sizeof im.build_date).c_str());
    return 0;
  }
  if (line.json) std::printf("{");
  if (line.command == "info") {
    print_image(*module, line.json);
    if (line.json) std::printf(", ");
  }
  print_services(*module, line.json);
  if (line.json) std::printf("}\n");
  return 0;
}

int run(int argc, char** argv) {
  Line line;
  try {
    line = split(argc, argv);
  } catch (const fmsd::app::UsageError& e) {
    std::fprintf(stderr, "fmsd: %s\n%s", e.what(), usage().c_str());
    return 2;
  }
  if (line.command == "forecast") return fmsd::app::run_forecast(line.settings, line.words, line.help);
  if (line.command == "report") return fmsd::app::run_report(line.settings, line.words, line.help);
  const fmsd::app::CommandSpec* command = fmsd::app::find_service_command(line.command);
  const bool known = command != nullptr || line.command == "info" || line.command == "services" ||
                     line.command == "--version";
  if (line.help && command != nullptr) {
    std::fputs(fmsd::app::help_text(*command).c_str(), stdout);
    return 0;
  }
  if (line.help && (known || line.command.empty())) {
    std::fputs(usage().c_str(), stdout);
    return 0;
  }
  if (line.command.empty()) {
    std::fputs(usage().c_str(), stderr);
    return 2;
  }
  if (!known) {
    std::fprintf(stderr, "fmsd: unknown command '%s'\n%s", line.command.c_str(), usage().c_str());
    return 2;
  }
  if (command == nullptr) return module_command(line);
  try {
    return fmsd::app::run_service_command(*command, line.settings, line.words);
  } catch (const fmsd::app::UsageError& e) {
    std::fprintf(stderr, "fmsd %s: %s\n%s(fmsd %s --help tells more)\n", command->name, e.what(),
                 fmsd::app::usage_line(*command).c_str(), command->name);
    return 2;
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "fmsd: %s\n", e.what());
  }
  return 1;
}
