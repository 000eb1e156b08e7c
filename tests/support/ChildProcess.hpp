#pragma once
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace tovani::test {

// How a child process ended: its exit code or the signal that ended it, and its stderr.
struct ChildEnd {
  int exitCode = -1;  // -1 unless it exited
  int signal = 0;     // 0 unless a signal ended it (SIGKILL after the time limit)
  std::string errors;
};

// Runs `argv` as a separate process and waits for it, at most `seconds`.
inline ChildEnd runChild(const std::vector<std::string>& argv, double seconds) {
  char errorsPath[] = "/tmp/tovani-child-XXXXXX";
  const int errorsFd = mkstemp(errorsPath);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, errorsFd, STDERR_FILENO);
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  ChildEnd end;
  const int spawned = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned == 0) {
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (waitpid(pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (WIFEXITED(status)) end.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) end.signal = WTERMSIG(status);
  }
  std::ifstream in(errorsPath);
  std::stringstream text;
  text << in.rdbuf();
  end.errors = text.str();
  close(errorsFd);
  unlink(errorsPath);
  return end;
}

}  // namespace tovani::test
