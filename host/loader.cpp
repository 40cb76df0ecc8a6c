// Loading the module: dlopen, enter it through mcn_main, find qorfmsd through the
// image information, and let it register its services.
#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "host/host.h"

namespace fmsd::host {

namespace {

using EntryFn = const fmsd_image_info* (*)(void*, void*);

constexpr char kMarker[] = "QOR_Image_Information=";

const fmsd_routine_descriptor* find_routine(const fmsd_image_info& image, const char (&name)[9]) {
  if (image.routines == nullptr) return nullptr;
  for (auto p = image.routines; *p != nullptr; ++p)
    if (std::memcmp((*p)->name, name, 8) == 0) return *p;
  return nullptr;
}

std::string directory_of_program() {
  char path[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return ".";
  std::string s(path, static_cast<std::size_t>(n));
  const auto slash = s.rfind('/');
  return slash == std::string::npos ? "." : s.substr(0, slash);
}

}  // namespace

std::unique_ptr<Module> Module::load(Host& host, const std::string& path, std::string& error) {
  std::unique_ptr<Module> m(new Module());
  m->path_ = path;
  m->handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (m->handle_ == nullptr) {
    const char* why = ::dlerror();
    error = why != nullptr ? why : "cannot load " + path;
    return nullptr;
  }
  auto entry = reinterpret_cast<EntryFn>(::dlsym(m->handle_, "mcn_main"));
  if (entry == nullptr) {
    error = path + " is not an fmsd module: it has no entry point mcn_main";
    return nullptr;
  }
  m->image_ = entry(host.control_block(), host.process_block());
  if (m->image_ == nullptr || m->image_->magic != FMSD_IMAGE_MAGIC ||
      std::memcmp(m->image_->marker, kMarker, sizeof kMarker) != 0) {
    error = path + ": the module's image information is not recognised";
    return nullptr;
  }
  const fmsd_routine_descriptor* d = find_routine(*m->image_, "qorfmsd ");
  if (d == nullptr || d->routine == nullptr) {
    error = path + ": the module names no registration routine qorfmsd";
    return nullptr;
  }

  fmsd_word status[2] = {0, 0};
  fmsd_word handle = 0;
  fmsd_word request[2] = {reinterpret_cast<fmsd_word>(status), reinterpret_cast<fmsd_word>(&handle)};
  if (d->routine(reinterpret_cast<fmsd_word>(&host), request) != 1 || handle == 0) {
    error = path + ": the module's services could not be registered (status " + std::to_string(status[0]) + ")";
    return nullptr;
  }
  for (const Registration& r : host.registrations())
    if (r.handle == handle) m->registration_ = r;
  if (m->registration_.services.size() != FMSD_SERVICE_COUNT) {
    error = path + ": the module registered " + std::to_string(m->registration_.services.size()) +
            " services instead of " + std::to_string(FMSD_SERVICE_COUNT);
    return nullptr;
  }
  return m;
}

Module::~Module() {
  if (handle_ != nullptr) ::dlclose(handle_);
}

std::string Module::service_name(int slot) const {
  if (slot < 0 || static_cast<std::size_t>(slot) >= registration_.services.size()) return {};
  Dl_info info{};
  if (::dladdr(reinterpret_cast<void*>(registration_.services[static_cast<std::size_t>(slot)]), &info) == 0 ||
      info.dli_sname == nullptr)
    return "?";
  return info.dli_sname;
}

std::string default_module_path() {
  if (const char* env = std::getenv("FMSD_MODULE"); env != nullptr && *env != '\0') return env;
  const std::string dir = directory_of_program();
  const std::string beside_lib = dir + "/../lib/libfmsd.so";
  if (::access(beside_lib.c_str(), R_OK) == 0) return beside_lib;
  return dir + "/libfmsd.so";
}

}  // namespace fmsd::host
