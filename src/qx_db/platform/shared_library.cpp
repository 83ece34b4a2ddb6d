#include "qx_db/platform/shared_library.h"

#include <filesystem>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace qx {
namespace {

#ifdef _WIN32

void* Open(const std::string& name) { return LoadLibraryA(name.c_str()); }  // looks beside, first

std::string Why() { return "error " + std::to_string(GetLastError()); }

#else

void* Open(const std::string& name) {
  std::string file = name;
  Dl_info here;
  if (dladdr(reinterpret_cast<void*>(&Open), &here) && here.dli_fname) {
    const auto beside = std::filesystem::path(here.dli_fname).parent_path() / name;
    std::error_code ignored;
    if (std::filesystem::exists(beside, ignored)) file = beside.string();
  }
  return dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
}

std::string Why() {
  const char* const text = dlerror();
  return text ? text : "it is not said why";
}

#endif

}  // namespace

Result<SharedLibrary> SharedLibrary::Load(const std::string& name) {
  if (void* const handle = Open(name)) return SharedLibrary(handle);
  return Failure{name, "", "cannot be loaded: " + Why(), ""};
}

void* SharedLibrary::Find(const char* name) const {
#ifdef _WIN32
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name));
#else
  return dlsym(handle_, name);
#endif
}

}  // namespace qx
