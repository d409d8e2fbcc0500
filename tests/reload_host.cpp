// usage: reload_host LIBRARY SCRATCH-DIRECTORY PROJECT
//
// Loads the library, runs projects, unloads it, and does so again: what a run leaves behind in the
// process is what the documentation says, and what it says about unloading holds. Needs nothing but
// the library and the system, so it also runs where the other tests do not.

#include <cfenv>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif
#endif

namespace fs = std::filesystem;

namespace {

using Bundle = std::int32_t (*)(const char* path, std::int32_t flag);

int failures = 0;

void expect(bool holds, const char* what) {
  if (holds) return;
  std::printf("FAILED: %s\n", what);
  ++failures;
}

class Library {
 public:
#ifdef _WIN32
  explicit Library(const std::string& path) : handle_(LoadLibraryA(path.c_str())) {}
  ~Library() { FreeLibrary(handle_); }
  static bool is_loaded(const std::string& path) {
    return GetModuleHandleA(path.c_str()) != nullptr;
  }

 private:
  void* address(const char* name) const {
    const FARPROC found = GetProcAddress(handle_, name);
    void* result = nullptr;
    std::memcpy(&result, &found, sizeof result);
    return result;
  }
  HMODULE handle_;
#else
  explicit Library(const std::string& path) : handle_(dlopen(path.c_str(), RTLD_NOW)) {}
  ~Library() { dlclose(handle_); }
  static bool is_loaded(const std::string& path) {
    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
  }

 private:
  void* address(const char* name) const { return dlsym(handle_, name); }
  void* handle_;
#endif

 public:
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  Bundle bundle() const {
    void* const found = handle_ == nullptr ? nullptr : address("VornBundle");
    Bundle result = nullptr;
    std::memcpy(&result, &found, sizeof result);
    if (result == nullptr) {
      std::printf("FAILED: the library cannot be loaded\n");
      std::exit(1);
    }
    return result;
  }
};

// Calls with a stack that is aligned to 4 bytes and no better, as hosts of 32-bit Windows do;
// `shift` is 0, 4, 8 or 12. Elsewhere an ordinary call.
std::int32_t call(Bundle bundle, const char* path, std::int32_t flag, std::int32_t shift) {
#ifdef __i386__
  std::int32_t result = shift;
  std::int32_t pushed = flag;
  asm volatile(
      "movl %%esp, %%ebx\n\t"
      "andl $-16, %%esp\n\t"
      "subl %%eax, %%esp\n\t"
      "pushl %%ecx\n\t"
      "pushl %%esi\n\t"
      "call *%%edi\n\t"
      "movl %%ebx, %%esp\n\t"
      : "+a"(result), "+c"(pushed)
      : "S"(path), "D"(bundle)
      : "ebx", "edx", "memory", "cc", "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6",
        "xmm7");
  return result;
#else
  static_cast<void>(shift);
  return bundle(path, flag);
#endif
}

// What a process has that a library could change. Open files count as the number the next one gets
// (elsewhere than on Windows) or as handles.
struct ProcessState {
  fs::path directory = fs::current_path();
  std::string locale = std::setlocale(LC_ALL, nullptr);
  int rounding = std::fegetround();
  std::uint32_t open_files = count_open_files();

  static std::uint32_t count_open_files() {
#ifdef _WIN32
    DWORD count = 0;
    return GetProcessHandleCount(GetCurrentProcess(), &count) ? std::uint32_t{count} : 0;
#else
    std::error_code ignored;
    std::uint32_t count = 0;
    for (fs::directory_iterator it("/proc/self/fd", ignored), end; it != end; ++it) ++count;
    return count;
#endif
  }
  bool operator==(const ProcessState&) const = default;
};

// Bytes in use on the heap; 0 where the C library does not tell.
std::size_t heap_in_use() {
#ifdef __GLIBC__
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
#else
  return 0;
#endif
}

std::string text_of(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Least-squares parameters that differ from the defaults, and projects of a line or two: one reads
// them, the other leaves them as they are and shows them in its report.
struct Projects {
  explicit Projects(const fs::path& directory) : root(directory) {
    fs::create_directories(root / "sets");
    fs::create_directories(root / "shows");
    std::ofstream(root / "sets" / "lspar.txt")
        << "7e-6 33 0 1 0 1 2e-3 2e-3 2e-6 2e-6 1e-29 1e29 1e-30 1e30 1e9 1e9 0.7 2.0 0.002 2.5 "
           "1e-3 9 m gon native\n";
    std::ofstream(root / "sets" / "sets.ctl") << "ls-params lspar.txt\nstop-dep\n";
    std::ofstream(root / "shows" / "shows.ctl") << "stop-dep\n";
  }
  // The report of the second project, run after the first when `after_setting`.
  std::string report(Bundle bundle, bool after_setting) const {
    if (after_setting) {
      expect(bundle((root / "sets" / "sets.ctl").string().c_str(), 0) == 1, "sets.ctl completes");
    }
    const fs::path file = root / "shows" / "shows.ctl";
    expect(bundle(file.string().c_str(), 0) == 1, "shows.ctl completes");
    std::string report = text_of(root / "shows" / "shows.out");
    // Times may differ; the parameters stand before them.
    report.resize(std::min(report.find("***"), report.size()));
    return report;
  }

  fs::path root;
};

// One life of the library in this process; gives the report of a project that shows the defaults.
std::string live(const std::string& path, const Projects& projects, const std::string& project) {
  const ProcessState before;
  std::string defaults;
  {
    const Library library(path);
    const Bundle bundle = library.bundle();
    defaults = projects.report(bundle, false);
    expect(fs::equivalent(fs::current_path(), projects.root / "shows"),
           "a run leaves the process in the project's directory");
    fs::current_path(before.directory);

    const std::string changed = projects.report(bundle, true);
    expect(changed != defaults, "parameters stay in force for the next run");
    fs::current_path(before.directory);

    for (const std::int32_t shift : {4, 8, 12}) {
      expect(call(bundle, project.c_str(), 1, shift) == 1, "the project completes, again, too");
      fs::current_path(before.directory);
    }
    expect(bundle("no such file", 0) == 0 && fs::current_path() == before.directory,
           "a path that names nothing changes nothing");
  }
  expect(!Library::is_loaded(path), "the library goes when it is unloaded");
#ifdef _WIN32
  // Raises an exception that handlers see; one that had gone with the library would crash here.
  OutputDebugStringA("unloaded");
#endif
  expect(ProcessState() == before, "directory, locale, rounding and open files are what they were");
  return defaults;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::printf("usage: reload_host LIBRARY SCRATCH-DIRECTORY PROJECT\n");
    return 2;
  }
  // The streams' buffers are taken now, so that they do not count as the library's.
  std::printf("reload_host\n");
  const std::string library = fs::absolute(argv[1]).string();
  const std::string project = fs::absolute(argv[3]).string();
  const Projects projects(fs::absolute(argv[2]));

  const std::string first = live(library, projects, project);
  expect(!first.empty(), "the report shows the parameters");
  const std::size_t heap = heap_in_use();
  constexpr int kLives = 4;
  for (int i = 1; i < kLives; ++i) {
    expect(live(library, projects, project) == first, "a library loaded again starts anew");
  }
  const std::size_t grown = heap_in_use() - heap;
  std::printf("bytes left on the heap by %d more lives: %lld\n", kLives - 1,
              static_cast<long long>(grown));
  // The loader itself keeps a few bytes of what it has loaded.
  expect(static_cast<long long>(grown) < 16384, "the heap does not grow from life to life");

  std::printf(failures == 0 ? "OK\n" : "%d failures\n", failures);
  return failures > 0;
}
