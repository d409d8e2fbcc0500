// GeoPackage by the module that GDAL is linked to, where it was built.

#include "app/exchange/layers.h"
#include "app/exchange/source.h"

#ifdef VORN_WITH_GDAL

#include <dlfcn.h>
#include <link.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "app/exchange/geopackage_module.h"
#include "text/file_system.h"

namespace vorn::exchange {
namespace {

constexpr char kModuleName[] = "vorn_geopackage.so";

// A file beside the one whose place it takes when it is complete.
class PartFile {
 public:
  explicit PartFile(const std::string& path) : path_(path) {
    const std::filesystem::path target(path);
    part_ = (target.parent_path() / ('.' + target.filename().string() + ".part")).string();
    std::remove(part_.c_str());
  }
  ~PartFile() { std::remove(part_.c_str()); }
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;

  [[nodiscard]] const std::string& path() const { return part_; }
  void take_place() const {
    if (!replace_file(part_, path_)) throw ExchangeError(path_ + ": " + error_text(errno));
  }

 private:
  std::string path_;
  std::string part_;
};

// Where the program is.
std::filesystem::path program_folder() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) throw ExchangeError("cannot find the module for GeoPackage: no /proc/self/exe");
  return program.parent_path();
}

// Programs have the module in their library directory, an extension module has it beside itself. It
// is never searched for along a path, where anybody's file could stand.
std::string module_file() {
  Dl_info info;
  void* map = nullptr;
  const bool is_found = dladdr1(kModuleName, &info, &map, RTLD_DL_LINKMAP) != 0;
  const std::filesystem::path object = is_found ? static_cast<const link_map*>(map)->l_name : "";
  const std::filesystem::path folder =
      object.empty() ? program_folder() / VORN_MODULE_DIR : object.parent_path();
  return (folder / kModuleName).lexically_normal().string();
}

const GeopackageModule& load_module() {
  const std::string file = module_file();
  void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    throw ExchangeError(std::string("cannot load the module for GeoPackage: ") + dlerror());
  }
  const auto* module = static_cast<const GeopackageModule*>(dlsym(library, kGeopackageSymbol));
  if (module == nullptr || module->version != std::string_view(VORN_VERSION)) {
    throw ExchangeError(file + ": is no module of version " VORN_VERSION);
  }
  return *module;
}

// Stays loaded: GDAL is not made to be unloaded.
const GeopackageModule& loaded_module() {
  static const GeopackageModule& module = load_module();
  return module;
}

}  // namespace

void require_geopackage() { loaded_module(); }

void write_geopackage(const std::vector<Layer>& layers, const std::string& path,
                      const std::string& crs) {
  const GeopackageModule& module = loaded_module();
  const PartFile part(path);
  try {
    module.write(layers, part.path(), crs);
  } catch (const ExchangeError& error) {
    throw ExchangeError(path + ": " + error.what());
  }
  part.take_place();
}

}  // namespace vorn::exchange

#else

namespace vorn::exchange {

void require_geopackage() {
  throw ExchangeError(
      "this program was built without GDAL (Debian: libgdal-dev) and cannot write GeoPackage");
}

void write_geopackage(const std::vector<Layer>&, const std::string&, const std::string&) {
  require_geopackage();
}

}  // namespace vorn::exchange

#endif
