// Writes down the system calls of a running service, and has one of them fail.
//
//   fail-call PID [THREAD CALL ARGUMENT NUMBER ERRNO]
//
// Each line on standard output is a call at its start: "made" or "failed", the thread, the call and
// its argument, separated by tabs. The call to fail is given by the same words, as a shell pattern;
// NUMBER counts the calls that match it, from 1. Prints "attached" on standard error when no call
// is missed from now on. A signal ends the program, and the service then runs on.
//
// strace can inject errors too, but it counts the calls of each thread apart and cannot name a
// thread, so an error for one of them hits the others too. Here the name of a thread says how many
// threads are between it and the main thread, as every request begins there. A child process is
// followed until it becomes another program.

#include <fcntl.h>
#include <fnmatch.h>
#include <linux/sched.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>

namespace {

enum class Argument { None, Descriptor, Path, PathAt, TwoPaths, Number, Memory, CloneFlags };

struct Call {
  const char* name;
  Argument argument;
};

const std::map<uint64_t, Call> Calls = {
    {SYS_read, {"read", Argument::Descriptor}},
    {SYS_write, {"write", Argument::Descriptor}},
    {SYS_getdents64, {"getdents64", Argument::Descriptor}},
    {SYS_fsync, {"fsync", Argument::Descriptor}},
    {SYS_fdatasync, {"fdatasync", Argument::Descriptor}},
    {SYS_sendto, {"sendto", Argument::Descriptor}},
    {SYS_recvfrom, {"recvfrom", Argument::Descriptor}},
    {SYS_connect, {"connect", Argument::Descriptor}},
    {SYS_openat, {"openat", Argument::PathAt}},
    {SYS_unlinkat, {"unlinkat", Argument::PathAt}},
    {SYS_unlink, {"unlink", Argument::Path}},
    {SYS_mkdir, {"mkdir", Argument::Path}},
    {SYS_chmod, {"chmod", Argument::Path}},
    {SYS_readlink, {"readlink", Argument::Path}},
    {SYS_rename, {"rename", Argument::TwoPaths}},
    {SYS_socket, {"socket", Argument::Number}},
    {SYS_mmap, {"mmap", Argument::Memory}},
    {SYS_clone3, {"clone3", Argument::CloneFlags}},
    {SYS_accept4, {"accept4", Argument::None}},
    {SYS_pipe2, {"pipe2", Argument::None}},
    {SYS_dup2, {"dup2", Argument::None}},
    {SYS_execve, {"execve", Argument::Path}},
    {SYS_wait4, {"wait4", Argument::None}},
    {SYS_pidfd_open, {"pidfd_open", Argument::None}},
};

constexpr const char* Names[] = {"main", "connection", "request", "pass", "helper"};
constexpr size_t BackgroundDepth = 2;  // it runs check passes as the thread of a request does

struct Tracee {
  std::string name;  // empty until the event of its parent has come
  size_t depth = 0;
  size_t pipes = 0;    // made so far
  bool waits = false;  // stopped until it has a name
  bool fails = false;  // in the call that must fail
};

struct Fault {
  std::string call;
  long number = 0;
  int error = 0;
};

std::map<pid_t, Tracee> tracees;
Fault fault;

std::string Text(pid_t tid, uint64_t address) {
  char text[4096] = {};
  // The page after the text may not be readable, so no piece that is read crosses a page.
  for (size_t at = 0; at < sizeof text - 1 && memchr(text, 0, at) == nullptr;) {
    const size_t inPage = 256 - (address + at) % 256;
    const size_t size = std::min(inPage, sizeof text - 1 - at);
    const iovec local = {text + at, size};
    // The number is an address in the other process.
    const iovec remote = {reinterpret_cast<void*>(address + at), size};  // NOLINT
    if (process_vm_readv(tid, &local, 1, &remote, 1, 0) <= 0) break;
    at += size;
  }
  return text;
}

std::string Link(pid_t tid, const std::string& of) {
  char text[4096] = {};
  const std::string path = "/proc/" + std::to_string(tid) + "/" + of;
  return readlink(path.c_str(), text, sizeof text - 1) < 0 ? "closed" : text;
}

// Without the numbers that differ from run to run.
std::string Plain(std::string text) {
  for (const std::string_view kind : {"pipe:[", "socket:["}) {
    if (text.starts_with(kind)) return text.substr(0, kind.size() - 2);
  }
  constexpr std::string_view Processes = "/proc/";
  if (!text.starts_with(Processes)) return text;
  size_t end = Processes.size();
  while (end < text.size() && isdigit(static_cast<unsigned char>(text[end]))) ++end;
  return end == Processes.size() ? text : "/proc/PID" + text.substr(end);
}

std::string FileOf(pid_t tid, uint64_t descriptor) {
  return Plain(Link(tid, "fd/" + std::to_string(static_cast<int>(descriptor))));
}

std::string Describe(pid_t tid, Argument kind, const uint64_t* arguments) {
  switch (kind) {
    case Argument::None:
      return "-";
    case Argument::Descriptor:
      return FileOf(tid, arguments[0]);
    case Argument::Path:
      return Plain(Text(tid, arguments[0]));
    case Argument::PathAt: {
      const std::string path = Plain(Text(tid, arguments[1]));
      const bool absolute = path.starts_with('/') || static_cast<int>(arguments[0]) == AT_FDCWD;
      return absolute ? path : FileOf(tid, arguments[0]) + "/" + path;
    }
    case Argument::TwoPaths:
      return Plain(Text(tid, arguments[0])) + " " + Plain(Text(tid, arguments[1]));
    case Argument::Number:
      return std::to_string(arguments[0]);
    case Argument::Memory:
      if ((arguments[3] & MAP_ANONYMOUS) == 0) return FileOf(tid, arguments[4]);
      return (arguments[3] & MAP_STACK) != 0 ? "stack" : "memory";
    case Argument::CloneFlags: {
      uint64_t flags = 0;  // the first field of struct clone_args
      const iovec local = {&flags, sizeof flags};
      const iovec remote = {reinterpret_cast<void*>(arguments[0]), sizeof flags};  // NOLINT
      process_vm_readv(tid, &local, 1, &remote, 1, 0);
      return (flags & CLONE_THREAD) != 0 ? "thread" : "process";
    }
  }
  return "";
}

void Resume(pid_t tid, int signal = 0) { ptrace(PTRACE_SYSCALL, tid, nullptr, signal); }

void Name(pid_t child, const Tracee& parent, bool thread) {
  Tracee& tracee = tracees[child];
  tracee.depth = parent.depth + (thread ? 1 : 0);
  tracee.name =
      thread ? Names[std::min(tracee.depth, std::size(Names) - 1)] : parent.name + "'s child";
  if (tracee.waits) Resume(child);
}

void SetRegister(pid_t tid, size_t offset, int64_t value) {
  ptrace(PTRACE_POKEUSER, tid, offset, value);
}

void EnterCall(pid_t tid, Tracee& tracee, const __ptrace_syscall_info& info) {
  const auto known = Calls.find(info.entry.nr);
  if (known == Calls.end()) return;
  std::string argument = Describe(tid, known->second.argument, info.entry.args);
  // Each pipe is of its own kind: how often it is read depends on the child that writes into it.
  if (argument == "pipe") argument += " " + std::to_string(tracee.pipes);
  if (known->first == SYS_pipe2) ++tracee.pipes;
  const std::string call = tracee.name + "\t" + known->second.name + "\t" + argument;
  tracee.fails = fnmatch(fault.call.c_str(), call.c_str(), 0) == 0 && --fault.number == 0;
  printf("%s\t%s\n", tracee.fails ? "failed" : "made", call.c_str());
  // The kernel skips a call with this number.
  if (tracee.fails) SetRegister(tid, offsetof(user_regs_struct, orig_rax), -1);
}

void HandleCall(pid_t tid, Tracee& tracee) {
  __ptrace_syscall_info info = {};
  if (ptrace(PTRACE_GET_SYSCALL_INFO, tid, sizeof info, &info) <= 0) return;
  if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
    EnterCall(tid, tracee, info);
  } else if (info.op == PTRACE_SYSCALL_INFO_EXIT && tracee.fails) {
    tracee.fails = false;
    SetRegister(tid, offsetof(user_regs_struct, rax), -fault.error);
  }
}

// The stop of a tracee that has not ended.
void HandleStop(pid_t tid, int status) {
  Tracee& tracee = tracees[tid];
  const int event = status >> 16;
  const int signal = WSTOPSIG(status);
  if (signal == (SIGTRAP | 0x80)) {
    HandleCall(tid, tracee);
    Resume(tid);
  } else if (event == PTRACE_EVENT_CLONE || event == PTRACE_EVENT_VFORK) {
    unsigned long child = 0;
    ptrace(PTRACE_GETEVENTMSG, tid, nullptr, &child);
    Name(static_cast<pid_t>(child), tracee, event == PTRACE_EVENT_CLONE);
    Resume(tid);
  } else if (event == PTRACE_EVENT_EXEC) {
    ptrace(PTRACE_DETACH, tid, nullptr, nullptr);
    tracees.erase(tid);
  } else if (event == PTRACE_EVENT_STOP && tracee.name.empty()) {
    tracee.waits = true;
  } else {
    Resume(tid, event == 0 ? signal : 0);
  }
}

bool Attach(pid_t pid) {
  constexpr long Options =
      PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_TRACEVFORK | PTRACE_O_TRACEEXEC;
  for (const auto& task :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    const pid_t tid = atoi(task.path().filename().c_str());
    tracees[tid] = {tid == pid ? Names[0] : "background", tid == pid ? 0 : BackgroundDepth};
    if (ptrace(PTRACE_SEIZE, tid, nullptr, Options) != 0) return false;
    if (ptrace(PTRACE_INTERRUPT, tid, nullptr, nullptr) != 0) return false;
    int status = 0;
    if (waitpid(tid, &status, __WALL) != tid) return false;
    Resume(tid);
  }
  return true;
}

void Follow() {
  int status = 0;
  for (pid_t tid = 0; (tid = waitpid(-1, &status, __WALL)) > 0;) {
    if (WIFSTOPPED(status)) {
      HandleStop(tid, status);
    } else {
      tracees.erase(tid);
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2 && count != 7) return 2;
  if (count == 7) {
    fault.call = std::string(arguments[2]) + "\t" + arguments[3] + "\t" + arguments[4];
    fault.number = atol(arguments[5]);
    fault.error = atoi(arguments[6]);
  }
  setvbuf(stdout, nullptr, _IOLBF, 0);
  if (!Attach(atoi(arguments[1]))) {
    fprintf(stderr, "fail-call: cannot attach: %s\n", strerror(errno));
    return 1;
  }
  fputs("attached\n", stderr);
  Follow();
  return 0;
}
