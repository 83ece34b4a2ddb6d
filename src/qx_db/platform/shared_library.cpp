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

void* Load(const std::string& file) { return LoadLibraryA(file.c_str()); }

void* Find(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

std::string Beside(const std::string& library) { return library; }  // Windows looks there itself

std::string Why() { return "error " + std::to_string(GetLastError()); }

#else

void* Load(const std::string& file) { return dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL); }

void* Find(void* library, const char* name) { return dlsym(library, name); }

std::string Beside(const std::string& library) {
  Dl_info here;
  if (!dladdr(reinterpret_cast<void*>(&FindInLibrary), &here) || !here.dli_fname) return library;
  const auto file = std::filesystem::path(here.dli_fname).parent_path() / library;
  std::error_code ignored;
  return std::filesystem::exists(file, ignored) ? file.string() : library;
}

std::string Why() {
  const char* const text = dlerror();
  return text ? text : "it does not say why";
}

#endif

}  // namespace

Result<void*> FindInLibrary(const std::string& library, const char* name) {
  void* const loaded = Load(Beside(library));
  void* const found = loaded ? Find(loaded, name) : nullptr;
  if (found) return found;
  return Failure{library, "", "cannot be loaded: " + Why(), ""};
}

}  // namespace qx
