// A program that knows no C++ and loads a shared object, as a file manager loads its extensions.
//   bench-loader LIBRARY [ARGUMENT...]   prints how long the loading and the object's own benchRun took together,
//                                        in nanoseconds, and how many pages were touched meanwhile
#include <dlfcn.h>
#include <stdio.h>
#include <sys/resource.h>
#include <time.h>

static long now(void) {
  struct timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * 1000000000L + time.tv_nsec;
}

static long pages(void) {
  struct rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt + usage.ru_majflt;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    return 2;
  }
  const long pagesBefore = pages();
  const long before = now();
  void* library = dlopen(argv[1], RTLD_NOW);
  if (library == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  int (*run)(int, char**) = (int (*)(int, char**))dlsym(library, "benchRun");
  const int result = run == NULL ? 1 : run(argc - 2, argv + 2);
  const long after = now();
  printf("%ld %ld\n", after - before, pages() - pagesBefore);
  return result;
}
