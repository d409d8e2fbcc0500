/* A host that loads the library when it needs it, finds its function by name and adjusts projects.
 *
 * usage: vorn_host LIBRARY [--cameras] PROJECT...
 *
 * Every project is adjusted by the same process, one after another. A line "PROJECT: completed" or
 * "PROJECT: failed" follows what the library printed. Exit status: 0 when all were completed, 1
 * when one failed, 2 for wrong usage or a library that cannot be loaded.
 */
#include <stdio.h>
#include <string.h>

#include "vorn/vorn.h"

#ifdef _WIN32

#include <direct.h>
#include <windows.h>

typedef HMODULE library_handle;
#define get_directory _getcwd
#define change_directory _chdir

static library_handle open_library(const char* path) {
  library_handle library = LoadLibraryA(path);
  if (library == NULL) {
    fprintf(stderr, "vorn_host: cannot load %s: error %lu\n", path, GetLastError());
  }
  return library;
}

static void* find_function(library_handle library, const char* name) {
  /* Not straight to a pointer: the compiler warns of a cast between unlike functions. */
  const FARPROC found = GetProcAddress(library, name);
  void* address = NULL;
  memcpy(&address, &found, sizeof address);
  return address;
}

static void close_library(library_handle library) { FreeLibrary(library); }

#else

#include <dlfcn.h>
#include <unistd.h>

typedef void* library_handle;
#define get_directory getcwd
#define change_directory chdir

static library_handle open_library(const char* path) {
  library_handle library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == NULL) fprintf(stderr, "vorn_host: %s\n", dlerror());
  return library;
}

static void* find_function(library_handle library, const char* name) {
  return dlsym(library, name);
}

static void close_library(library_handle library) { dlclose(library); }

#endif

/* What the header declares, as a type. The calling convention is C's own (cdecl on Windows). */
typedef int32_t (*bundle_function)(const char* path, int32_t flag);

/* Adjusts one project and stays in the directory where this host was. */
static int adjust(bundle_function bundle, const char* project, int32_t cameras) {
  char directory[4096];
  const int known = get_directory(directory, sizeof directory) != NULL;
  const int completed = bundle(project, cameras) == 1;
  if (!known || change_directory(directory) != 0) {
    fprintf(stderr, "vorn_host: cannot return to the directory of the start\n");
    return 0;
  }
  printf("%s: %s\n", project, completed ? "completed" : "failed");
  fflush(stdout);
  return completed;
}

int main(int argc, char** argv) {
  const int32_t cameras = argc > 2 && strcmp(argv[2], "--cameras") == 0;
  const int first = cameras ? 3 : 2;
  if (argc <= first) {
    fprintf(stderr, "usage: vorn_host LIBRARY [--cameras] PROJECT...\n");
    return 2;
  }
  library_handle library = open_library(argv[1]);
  if (library == NULL) return 2;

  void* const address = find_function(library, "VornBundle");
  bundle_function bundle = NULL;
  memcpy(&bundle, &address, sizeof bundle);
  if (bundle == NULL) {
    fprintf(stderr, "vorn_host: %s has no function VornBundle\n", argv[1]);
    close_library(library);
    return 2;
  }

  int failed = 0;
  for (int i = first; i < argc; ++i) failed += !adjust(bundle, argv[i], cameras);
  close_library(library);
  return failed > 0;
}
