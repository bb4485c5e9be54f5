// verify-release: proves from outside that machines accept what is offered to them.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <future>
#include <new>
#include <string>
#include <vector>

#include "base/directories.h"
#include "base/file_content.h"
#include "base/leak_check.h"
#include "publisher/report_page.h"
#include "publisher/report_text.h"
#include "publisher/ring_report.h"
#include "settings/settings_file.h"

namespace Vantrell::Publisher {
namespace {

constexpr char Help[] =
    R"(usage: verify-release [--ring NAME]... [--offer FILE | --installed VERSION] [--files]
                      [--probe] [--html FILE]

Proves from outside, with the code of the service, that every machine accepts the release that the
update server offers. It judges the nine files of the three witnesses one by one, and then asks the
service's own check. Update server, witnesses and keys are those of its build: configure it with
the same -DVANTRELL_DEPLOYMENT=FILE as the service.

  --ring NAME          dev, beta or prod (the default); may be repeated
  --offer FILE         verify this offer.json instead of the answer of the update server
  --installed VERSION  ask as a machine that has this version; the default is one without
  --files              fetch the files too, and compare their hashes and the package's fields;
                       needs room for them in $TMPDIR or /var/tmp
  --probe              print one line for a monitor
  --html FILE          write a page with the rings, their versions and the nine files
  -h, --help           print this text

Exit status: 0 OK; 1 WARNING, a machine without the client is offered nothing; 2 CRITICAL, a machine
gets no release or refuses it; 3 UNKNOWN, wrong usage or a fault of this machine.
)";

// Both bound what a hostile server can use up. The service itself has the memory limit of its unit.
#if defined(VANTRELL_ADDRESS_SANITIZER) || defined(__SANITIZE_THREAD__)
constexpr rlim_t MemoryLimit = RLIM_INFINITY;  // a sanitizer reserves terabytes
#else
constexpr rlim_t MemoryLimit = rlim_t{1} << 30;
#endif
constexpr rlim_t FileSizeLimit = rlim_t{4} << 30;

struct Options {
  std::vector<std::string> rings;
  std::string offer;
  std::string installedVersion;
  std::string page;
  bool fetchesFiles = false;
  bool isProbe = false;
};

int FailUnknown(const std::string& sentence) {
  fprintf(stderr, "verify-release: %s.\n", sentence.c_str());
  return StatusUnknown;
}

// Takes an option that has a value.
bool TakeValue(const std::string& option, const std::string& value, Options& options,
               std::string& error) {
  if (option == "--ring" && !IsRing(value)) {
    error = "the ring must be dev, beta or prod; see --help";
  } else if (option == "--ring") {
    const bool isKnown = std::count(options.rings.begin(), options.rings.end(), value) > 0;
    if (!isKnown) options.rings.push_back(value);
  } else if (option == "--offer") {
    options.offer = ReadWholeFile(value);
    if (options.offer.empty()) error = "the offer " + value + " cannot be read, or is empty";
  } else if (option == "--installed") {
    options.installedVersion = value;
  } else if (option == "--html") {
    options.page = value;
  } else {
    error = "unknown argument " + option + "; see --help";
  }
  return error.empty();
}

bool ReadOptions(const std::vector<std::string>& words, Options& options, std::string& error) {
  for (size_t index = 0; index < words.size(); ++index) {
    if (words[index] == "--files") {
      options.fetchesFiles = true;
    } else if (words[index] == "--probe") {
      options.isProbe = true;
    } else if (index + 1 == words.size()) {
      error = words[index] + " is unknown or needs a value; see --help";
      return false;
    } else if (!TakeValue(words[index], words[index + 1], options, error)) {
      return false;
    } else {
      ++index;
    }
  }
  if (options.rings.empty()) options.rings = {"prod"};
  return true;
}

[[noreturn]] void EndWithoutMemory() {
  constexpr char Line[] = "RELEASE CRITICAL: the answers of the servers need more than 1 GiB\n";
  (void)!write(STDOUT_FILENO, Line, sizeof Line - 1);
  _exit(StatusCritical);
}

void LimitResources() {
  const rlimit memory = {MemoryLimit, MemoryLimit};
  const rlimit fileSize = {FileSizeLimit, FileSizeLimit};
  setrlimit(RLIMIT_DATA, &memory);
  setrlimit(RLIMIT_FSIZE, &fileSize);
  signal(SIGXFSZ, SIG_IGN);
  signal(SIGPIPE, SIG_IGN);
  std::set_new_handler(EndWithoutMemory);
}

// All rings at the same time: a server that does not answer delays the others otherwise. With files
// one after the other: they share the room, which each ring measures before it fetches.
std::vector<RingReport> ExamineRings(const Options& options, const std::string& folder) {
  const auto policy = folder.empty() ? std::launch::async : std::launch::deferred;
  std::vector<std::future<RingReport>> examinations;
  for (const std::string& ring : options.rings) {
    const RingQuestion question = {ring, options.offer, options.installedVersion, folder};
    examinations.push_back(std::async(policy, ExamineRing, question));
  }
  std::vector<RingReport> reports;
  reports.reserve(examinations.size());
  for (auto& examination : examinations) reports.push_back(examination.get());
  return reports;
}

std::string TimeText() {
  const time_t now = time(nullptr);
  tm utc = {};
  gmtime_r(&now, &utc);
  char text[32] = {};
  strftime(text, sizeof text, "%F %T UTC", &utc);
  return text;
}

int Report(const Options& options, const std::vector<RingReport>& reports) {
  int status = OverallStatus(reports);
  std::string fault;
  if (!options.page.empty() && !WritePage(options.page, ReportPage(reports, TimeText()), fault) &&
      status != StatusCritical) {
    status = StatusUnknown;
  }
  std::string text = options.isProbe ? "" : BuildText();
  for (const RingReport& report : reports) {
    if (!options.isProbe) text += RingText(report);
  }
  text += (options.isProbe ? "" : "\n") + ProbeLine(status, reports);
  if (!fault.empty()) text += "; the page cannot be written, " + fault;
  puts(text.c_str());
  return fflush(stdout) == 0 ? status : StatusUnknown;
}

// The service's code logs texts of the servers as they are. The report has all that it says.
void SilenceLog() {
  const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nothing >= 0) dup2(nothing, STDERR_FILENO);
}

int Examine(const Options& options, const std::string& folder) {
  LimitResources();
  SilenceLog();
  try {
    return Report(options, ExamineRings(options, folder));
  } catch (const std::bad_alloc&) {
    EndWithoutMemory();
  }
}

// A directory for the files of all rings; its path is empty if it cannot be made.
std::string MakeFolder() {
  const char* parent = getenv("TMPDIR");
  std::string path =
      std::string(parent != nullptr ? parent : "/var/tmp") + "/verify-release-XXXXXX";
  return mkdtemp(path.data()) != nullptr ? path : "";
}

// Works in a child, so that the folder is removed however the work ends, by a signal too.
int ExamineInChild(const Options& options, const std::string& folder) {
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  for (const int number : {SIGCHLD, SIGHUP, SIGINT, SIGTERM}) sigaddset(&signals, number);
  sigprocmask(SIG_BLOCK, &signals, &before);
  signal(SIGCHLD, SIG_DFL);  // one that is ignored would not come
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    _exit(Examine(options, folder));
  }
  int status = 0;
  while (child > 0 && waitpid(child, &status, WNOHANG) == 0) {
    int number = 0;
    sigwait(&signals, &number);
    if (number != SIGCHLD) kill(child, SIGKILL);
  }
  if (!folder.empty()) RemoveTree(folder);
  if (child > 0 && WIFEXITED(status)) return WEXITSTATUS(status);
  puts("RELEASE UNKNOWN: verify-release was ended before its work was done");
  return StatusUnknown;
}

int Run(const std::vector<std::string>& words) {
  if (words == std::vector<std::string>{"--help"} || words == std::vector<std::string>{"-h"}) {
    fputs(Help, stdout);
    return StatusOk;
  }
  Options options;
  std::string error;
  if (!ReadOptions(words, options, error)) return FailUnknown(error);
  const std::string folder = options.fetchesFiles ? MakeFolder() : "";
  if (options.fetchesFiles && folder.empty()) {
    return FailUnknown("no temporary directory can be made; set TMPDIR to a directory with room");
  }
  return ExamineInChild(options, folder);
}

}  // namespace
}  // namespace Vantrell::Publisher

int main(int count, char** words) {
  // The programs that this one runs must be the system's, and their output must not be translated.
  setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  return Vantrell::Publisher::Run({words + 1, words + count});
}
