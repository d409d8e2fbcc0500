// usage: reload_host LIBRARY SCRATCH-DIRECTORY PROJECT
//
// Loads the library, runs projects, unloads it, and does so again: what a run leaves behind in the
// process is what the documentation says, and what it says about unloading holds. Needs nothing but
// the library and the system, so it also runs where the other tests do not.

#include <cfenv>
#include <clocale>
#include <cstdio>
#include <cstring>

#include "support/temp_dir.h"

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
  if (!holds) std::printf("FAILED: %s\n", what);
  if (!holds) ++failures;
}

// The system's own way to load, to find a function, to unload and to tell whether a library is
// loaded.
#ifdef _WIN32
HMODULE load(const char* path) { return LoadLibraryA(path); }
FARPROC find(HMODULE library) { return GetProcAddress(library, "VornBundle"); }
void unload(HMODULE library) { FreeLibrary(library); }
bool is_loaded(const char* path) { return GetModuleHandleA(path) != nullptr; }
#else
void* load(const char* path) { return dlopen(path, RTLD_NOW); }
void* find(void* library) { return dlsym(library, "VornBundle"); }
void unload(void* library) { dlclose(library); }
bool is_loaded(const char* path) { return dlopen(path, RTLD_NOW | RTLD_NOLOAD) != nullptr; }
#endif

// Calls with a stack that is aligned to 4 bytes and no better, as hosts of 32-bit Windows do;
// `shift` is 4, 8 or 12. Elsewhere an ordinary call.
std::int32_t call(Bundle bundle, const char* path, std::int32_t flag,
                  [[maybe_unused]] std::int32_t shift) {
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
  return bundle(path, flag);
#endif
}

// Floating-point arithmetic of a thread. On x86 the control words of its two units, the flags of
// exceptions left out; elsewhere the rounding.
struct Arithmetic {
  unsigned x87 = 0;
  unsigned sse = 0;
  int rounding = FE_TONEAREST;
  bool operator==(const Arithmetic&) const = default;
};
#if defined(__i386__) || defined(__x86_64__)
// 24-bit significands, denormals taken for zero, rounding up, every exception trapped.
constexpr Arithmetic kHostileArithmetic = {0x0840, 0xC040, FE_UPWARD};
void set_arithmetic(const Arithmetic& arithmetic) {
  asm volatile("fninit\n\tfldcw %0\n\tldmxcsr %1" : : "m"(arithmetic.x87), "m"(arithmetic.sse));
}
Arithmetic current_arithmetic() {
  Arithmetic current;
  asm volatile("fnstcw %0\n\tstmxcsr %1" : "+m"(current.x87), "+m"(current.sse));
  current.sse &= ~0x3FU;
  current.rounding = std::fegetround();
  return current;
}
#else
constexpr Arithmetic kHostileArithmetic = {0, 0, FE_UPWARD};
void set_arithmetic(const Arithmetic& arithmetic) { std::fesetround(arithmetic.rounding); }
Arithmetic current_arithmetic() { return {0, 0, std::fegetround()}; }
#endif

// Open files (elsewhere than on Windows) or handles.
std::ptrdiff_t count_open_files() {
#ifdef _WIN32
  DWORD count = 0;
  return GetProcessHandleCount(GetCurrentProcess(), &count) ? static_cast<std::ptrdiff_t>(count)
                                                            : 0;
#else
  std::error_code ignored;
  return std::distance(fs::directory_iterator("/proc/self/fd", ignored), {});
#endif
}

// What a process has that a library could change.
struct ProcessState {
  fs::path directory = fs::current_path();
  std::string locale = std::setlocale(LC_ALL, nullptr);
  Arithmetic arithmetic = current_arithmetic();
  std::ptrdiff_t open_files = count_open_files();
  bool operator==(const ProcessState&) const = default;
};

// Bytes in use on the heap; 0 where the C library does not tell.
long long heap_in_use() {
#ifdef __GLIBC__
  const auto info = mallinfo2();
  return static_cast<long long>(info.uordblks + info.hblkhd);
#else
  return 0;
#endif
}

std::string shown_parameters(Bundle bundle) {
  expect(bundle("shows.ctl", 0) == 1, "shows.ctl completes");
  const std::string report = vorn::test::file_text("shows.out");
  // Times may differ; the parameters stand before them.
  return report.substr(0, report.find("***"));
}

// What a run of the project writes; times are in the report alone.
std::string results(const std::string& project) {
  std::string texts;
  for (const char* extension : {"ext", "ocs", "res", "apset", "gcpres", "chp", "cam"}) {
    texts += vorn::test::file_text(fs::path(project).replace_extension(extension));
  }
  return texts;
}

// The host's arithmetic neither changes a result nor is changed by a run.
void expect_same_in_hostile_arithmetic(Bundle bundle, const std::string& project) {
  const std::string expected = results(project);
  const Arithmetic own = current_arithmetic();
  set_arithmetic(kHostileArithmetic);
  const std::int32_t result = bundle(project.c_str(), 1);
  const Arithmetic afterwards = current_arithmetic();
  set_arithmetic(own);
  expect(result == 1, "the project completes in a host's arithmetic");
  expect(afterwards == kHostileArithmetic, "the host's arithmetic is what it was");
  expect(!expected.empty() && results(project) == expected,
         "the host's arithmetic changes no result");
}

// One life of the library in this process; gives the parameters that it starts with.
std::string live(const std::string& path, const std::string& project) {
  const ProcessState before;
  const auto library = load(path.c_str());
  const auto found = library == nullptr ? nullptr : find(library);
  expect(found != nullptr, "the library can be loaded");
  if (found == nullptr) return {};
  Bundle bundle = nullptr;
  std::memcpy(&bundle, &found, sizeof bundle);

  const std::string defaults = shown_parameters(bundle);
  expect(bundle("sets.ctl", 0) == 1, "sets.ctl completes");
  expect(shown_parameters(bundle) != defaults, "parameters stay in force for the next run");
  for (const std::int32_t shift : {4, 8, 12}) {
    expect(call(bundle, project.c_str(), 1, shift) == 1, "the project completes, again, too");
  }
  expect_same_in_hostile_arithmetic(bundle, project);
  const fs::path there = fs::current_path();
  expect(fs::equivalent(there, fs::path(project).parent_path()),
         "a run leaves the process in the project's directory");
  expect(bundle("no such file", 0) == 0 && fs::current_path() == there,
         "a path that names nothing changes nothing");
  unload(library);
  expect(!is_loaded(path.c_str()), "the library goes when it is unloaded");
#ifdef _WIN32
  // Raises an exception that handlers see; one that had gone with the library would crash here.
  OutputDebugStringA("unloaded");
#endif
  fs::current_path(before.directory);
  expect(ProcessState() == before, "locale, arithmetic and open files are what they were");
  return defaults;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  // The streams' buffers are taken now, so that they do not count as the library's.
  std::printf("reload_host\n");
  const std::string library = fs::absolute(argv[1]).string();
  const std::string project = fs::absolute(argv[3]).string();
  fs::create_directories(argv[2]);
  fs::current_path(argv[2]);
  // One project reads least-squares parameters that differ from the defaults, the other leaves them
  // as they are and shows them in its report.
  std::ofstream("lspar.txt") << "7e-6 33 0 1 0 1 2e-3 2e-3 2e-6 2e-6 1e-29 1e29 1e-30 1e30 1e9 1e9 "
                                "0.7 2.0 0.002 2.5 1e-3 9 m gon native\n";
  std::ofstream("sets.ctl") << "ls-params lspar.txt\nstop-dep\n";
  std::ofstream("shows.ctl") << "stop-dep\n";

  const std::string first = live(library, project);
  expect(!first.empty(), "the report shows the parameters");
  const long long heap = heap_in_use();
  for (int i = 0; i < 3; ++i) {
    expect(live(library, project) == first, "a library loaded again starts anew");
  }
  const long long grown = heap_in_use() - heap;
  std::printf("bytes left on the heap by 3 more lives: %lld\n", grown);
  // The loader itself keeps a few bytes of what it has loaded.
  expect(grown < 16384, "the heap does not grow from life to life");

  std::printf(failures == 0 ? "OK\n" : "%d failures\n", failures);
  return failures > 0;
}
