// fmsd: runs the forecasting module's services from the command line.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "host/host.h"

namespace {

constexpr char kUsage[] =
    "usage: fmsd [--module PATH] [--json] COMMAND\n"
    "\n"
    "commands:\n"
    "  info       load the module and show its image information and services\n"
    "  services   load the module and list the services it registers\n"
    "  --version  show the versions of fmsd and of the module\n"
    "  --help     show this text\n"
    "\n"
    "The module is libfmsd.so beside the program (../lib), or the file named by\n"
    "--module or by the environment variable FMSD_MODULE.\n";

std::string field(const char* text, std::size_t size) { return std::string(text, strnlen(text, size)); }

std::string json_string(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

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

}  // namespace

int main(int argc, char** argv) {
  std::string module_path;
  bool json = false;
  std::vector<std::string> commands;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--module") {
      if (++i == argc) {
        std::fprintf(stderr, "fmsd: --module needs a path\n%s", kUsage);
        return 2;
      }
      module_path = argv[i];
    } else if (a == "--json") {
      json = true;
    } else if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else {
      commands.push_back(a);
    }
  }
  if (commands.size() != 1) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  const std::string& command = commands.front();
  if (command != "info" && command != "services" && command != "--version") {
    std::fprintf(stderr, "fmsd: unknown command '%s'\n%s", command.c_str(), kUsage);
    return 2;
  }

  fmsd::host::Host host;
  std::string error;
  if (module_path.empty()) module_path = fmsd::host::default_module_path();
  auto module = fmsd::host::Module::load(host, module_path, error);
  if (!module) {
    std::fprintf(stderr, "fmsd: cannot use the module: %s\n", error.c_str());
    return 1;
  }

  if (command == "--version") {
    const fmsd_image_info& im = module->image();
    std::printf("fmsd %s (module %s, built %s)\n", FMSD_VERSION, field(im.release, sizeof im.release).c_str(),
                field(im.build_date, sizeof im.build_date).c_str());
    return 0;
  }
  if (json) std::printf("{");
  if (command == "info") {
    print_image(*module, json);
    if (json) std::printf(", ");
  }
  print_services(*module, json);
  if (json) std::printf("}\n");
  return 0;
}
