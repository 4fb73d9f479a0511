// Runs one program and reports its wall time and peak resident set.
//
//   peak_rss PROG [ARGS...]
//
// prints "status=S seconds=T cpu_seconds=C maxrss_kib=K" on stdout; the program's own
// output goes to /dev/null. The kernel carries the peak resident set across
// fork and exec, so a child forked straight from a large interpreter would
// report the interpreter's size; this launcher is small, so the figure is
// the program's own.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: peak_rss PROG [ARGS...]\n");
    return 2;
  }
  struct timespec begin, end;
  clock_gettime(CLOCK_MONOTONIC, &begin);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) {
    std::perror("peak_rss: fork");
    return 1;
  }
  if (child == 0) {
    // Killing the launcher must not leave the program running on its own.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127);
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0) {
      dup2(null, 1);
      dup2(null, 2);
    }
    execv(argv[1], argv + 1);
    _exit(127);
  }
  int status = 0;
  struct rusage usage;
  if (wait4(child, &status, 0, &usage) != child) {
    std::perror("peak_rss: wait4");
    return 1;
  }
  clock_gettime(CLOCK_MONOTONIC, &end);
  const double seconds = static_cast<double>(end.tv_sec - begin.tv_sec) +
                         static_cast<double>(end.tv_nsec - begin.tv_nsec) / 1e9;
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  std::printf("status=%d seconds=%.6f cpu_seconds=%.6f maxrss_kib=%ld\n", code, seconds, cpu, usage.ru_maxrss);
  return 0;
}
