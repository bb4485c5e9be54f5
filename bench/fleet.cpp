// Simulates the machines of a fleet for some days and prints, as JSON, when their requests and
// installs happen. The loop of the checks, the shift of each machine and the window are the
// service's own functions, compiled in; bench/fleet reads the constants of the window's timer from
// packaging/ and passes them as arguments. No machine influences another, so they are simulated one
// after the other. The same arguments give the same output. By hand:
//
//   build/bench/fleet machines=250000 days=2 window-hours=4 publish=9
//
// A point in time is in hours after the midnight before the first day, by the clock of machine 0.

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "service/background_loop.h"
#include "settings/maintenance_window.h"
#include "update/request_bodies.h"

namespace Vantrell::Fleet {
namespace {

namespace Service = ClientUpdateService;

using Time = int64_t;  // milliseconds; as a point in time, since the midnight before the first day

constexpr Time SecondMs = 1000;
constexpr Time MinuteMs = 60 * SecondMs;
constexpr Time HourMs = 60 * MinuteMs;
constexpr Time DayMs = 24 * HourMs;
constexpr Time Never = std::numeric_limits<Time>::max() / 2;
constexpr uint32_t FilesOfWitness = 3;  // block, signature, digest
constexpr Time BinMs = 10 * SecondMs;   // events are counted for each of these

// Assumptions, which docs/fleet.md states.
constexpr Time ShortestBootMs = 20 * SecondMs;  // from the power to the start of the service
constexpr Time BootSpanMs = 60 * SecondMs;      // by how much boots differ, evenly
constexpr Time DownloadMs = 60 * SecondMs;
constexpr Time InstallMs = 30 * SecondMs;  // with the judgement of the new client
// By how much systemd may delay a timer that does not set AccuracySec. Each run is taken to be late
// by a random part of it.
constexpr Time TimerAccuracyMs = MinuteMs;

struct Scenario {
  int64_t machines = 1'000'000;
  int64_t seed = 1;
  Time zoneSpan = 0;  // of the machines' clocks, which are spread over it evenly
  Time end = DayMs;
  Time windowStart = 2 * HourMs;
  Time windowLength = 3 * HourMs;
  Time timerInterval = 0;  // of the window's timer; 0: it is disabled
  Time timerCheckInterval = 30 * MinuteMs;
  Time timerOutcomeLimit = 30 * SecondMs;
  Time publish = Never;
  Time halt = Never;         // from here on the release is not offered
  int64_t isBad = 0;         // 1: each install of the release is rolled back
  Time witnessDead = Never;  // witness 2: refuses connections
  Time witnessBack = Never;
  Time serverDead = Never;  // the update server: does not answer
  Time serverBack = Never;
  Time powerCut = Never;  // of all machines
  Time powerBack = Never;
};

struct Argument {
  const char* name;
  int64_t Scenario::*value;
  double unit;
};

constexpr Argument Arguments[] = {
    {"machines", &Scenario::machines, 1},
    {"seed", &Scenario::seed, 1},
    {"zone-hours", &Scenario::zoneSpan, HourMs},
    {"days", &Scenario::end, DayMs},
    {"window-start", &Scenario::windowStart, HourMs},
    {"window-hours", &Scenario::windowLength, HourMs},
    {"timer-minutes", &Scenario::timerInterval, MinuteMs},
    {"timer-check-minutes", &Scenario::timerCheckInterval, MinuteMs},
    {"timer-outcome-seconds", &Scenario::timerOutcomeLimit, SecondMs},
    {"publish", &Scenario::publish, HourMs},
    {"halt", &Scenario::halt, HourMs},
    {"bad", &Scenario::isBad, 1},
    {"witness-dead", &Scenario::witnessDead, HourMs},
    {"witness-back", &Scenario::witnessBack, HourMs},
    {"server-dead", &Scenario::serverDead, HourMs},
    {"server-back", &Scenario::serverBack, HourMs},
    {"power-cut", &Scenario::powerCut, HourMs},
    {"power-back", &Scenario::powerBack, HourMs},
};

// False: `text` is not NAME=NUMBER with a known name.
bool ReadArgument(const char* text, Scenario& scenario) {
  for (const Argument& argument : Arguments) {
    const size_t length = strlen(argument.name);
    if (strncmp(text, argument.name, length) != 0 || text[length] != '=') continue;
    char* end = nullptr;
    const char* const value = text + length + 1;
    const double number = strtod(value, &end);
    if (end == value || *end != '\0' || !(number >= 0 && number <= 1e9)) return false;
    scenario.*argument.value = llround(number * argument.unit);
    return true;
  }
  return false;
}

// SplitMix64. Each machine has one of its own.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t Next() {
    uint64_t value = state_ += 0x9e3779b97f4a7c15;
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
    value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
    return value ^ (value >> 31);
  }

  // From 0 to limit - 1. The bias of the remainder is below 1 in 10^8.
  Time Below(Time limit) { return static_cast<Time>(Next() % static_cast<uint64_t>(limit)); }

 private:
  uint64_t state_;
};

std::string MakeInstallId(Random& random) {
  const uint64_t high = random.Next();
  const uint64_t low = random.Next();
  char id[40];
  snprintf(id, sizeof id, "%08" PRIx64 "-%04" PRIx64 "-4%03" PRIx64 "-a%03" PRIx64 "-%012" PRIx64,
           high >> 32, (high >> 16) & 0xffff, high & 0xfff, low >> 52, low & 0xffffffffffff);
  return id;
}

// The maintenance window of all machines, by the service's own test.
class Window {
 public:
  explicit Window(const Scenario& scenario) : start_(scenario.windowStart % DayMs) {
    const std::string start = ClockText(start_);
    const std::string end = ClockText((start_ + scenario.windowLength) % DayMs);
    for (size_t minute = 0; minute < open_.size(); ++minute) {
      open_[minute] = WindowContains(start, end, true, static_cast<int>(minute));
    }
  }

  bool IsOpen(Time time) const {
    return open_[static_cast<size_t>((SinceStart(time) + start_) % DayMs / MinuteMs)];
  }
  Time UntilOpening(Time time) const { return DayMs - SinceStart(time); }
  // A number that is the same for all times from one opening to the next.
  Time NightOf(Time time) const { return time - SinceStart(time); }

 private:
  static std::string ClockText(Time time) {
    char text[16];
    snprintf(text, sizeof text, "%02d:%02d", static_cast<int>(time / HourMs),
             static_cast<int>(time % HourMs / MinuteMs));
    return text;
  }
  Time SinceStart(Time time) const { return ((time - start_) % DayMs + DayMs) % DayMs; }

  Time start_;
  std::array<bool, DayMs / MinuteMs> open_ = {};
};

// A further member of the object that is being printed.
void PrintList(const char* name, const std::vector<uint32_t>& values) {
  printf(",\n\"%s\": [", name);
  const char* separator = "";
  for (const uint32_t value : values) {
    printf("%s%" PRIu32, separator, value);
    separator = ",";
  }
  printf("]");
}

// How many events happened in each bin.
class Counter {
 public:
  Counter(const char* name, Time end) : name_(name), bins_(static_cast<size_t>(end / BinMs)) {}

  void Count(Time time, uint32_t events = 1) {
    const auto bin = static_cast<size_t>(time / BinMs);
    if (time >= 0 && bin < bins_.size()) bins_[bin] += events;
  }

  void Print() const { PrintList(name_, bins_); }

 private:
  const char* name_;
  std::vector<uint32_t> bins_;
};

// What happens to the whole fleet.
struct Events {
  explicit Events(Time end)
      : checks("checks", end),
        witnesses{{{"witness 1", end}, {"witness 2", end}, {"witness 3", end}}},
        installs("installs", end),
        rollbacks("rollbacks", end),
        firstRollbacks("first rollbacks", end) {}

  Counter checks;  // requests to the update server
  std::array<Counter, 3> witnesses;
  Counter installs;  // that were accepted
  Counter rollbacks;
  Counter firstRollbacks;  // of each machine
};

class Machine {
 public:
  Machine(const Scenario& scenario, const Window& window, int64_t number, Events& events)
      : scenario_(scenario),
        window_(window),
        events_(events),
        random_(static_cast<uint64_t>(scenario.seed << 32) ^ static_cast<uint64_t>(number)),
        zone_(number * scenario.zoneSpan / scenario.machines),
        installId_(MakeInstallId(random_)) {}

  // The first check is within the last period before the first day, so that the fleet is in the
  // steady state.
  void Live() {
    const uint32_t shift = Service::StableJitter(installId_, Service::CheckJitterSpanMs);
    now_ = -Time{Service::FirstCheckDelayMs} - random_.Below(Service::BaseCheckPeriodMs + shift);
    offAt_ = std::min(scenario_.powerCut, scenario_.end);
    RunUntilOff();
    if (offAt_ == scenario_.end) return;
    now_ = scenario_.powerBack + ShortestBootMs + random_.Below(BootSpanMs);
    offAt_ = scenario_.end;
    RunUntilOff();
  }

 private:
  // From a boot on.
  void RunUntilOff() {
    nextTimerRun_ = AfterTimerInterval(now_);
    while (now_ < offAt_) {
      stagedAt_ = Never;
      passWasMade_ = false;
      stopsForNewBuild_ = false;
      // It ends with the power, and after an accepted install: systemd then starts the new build.
      Service::RunUpdateLoop({[this](Milliseconds wait) { return Advance(now_ + wait); },
                              [this] { return PassOfLoop(); }, [this] { return TryInstall(now_); },
                              [this] { return installId_; }});
    }
  }

  // Lets the time go by until `until`, and the window's timer run. False when the service stops.
  bool Advance(Time until) {
    if (stopsForNewBuild_) return false;
    const Time limit = std::min(until, offAt_);
    while (nextTimerRun_ < limit) {
      RunWindowTimer(nextTimerRun_);
      if (stopsForNewBuild_) return false;
    }
    now_ = std::max(now_, limit);
    return now_ < offAt_;
  }

  bool PassOfLoop() {
    const bool reached = MakePass(now_);
    if (!reached) Advance(now_ + CheckLimitMs);
    if (stagedAt_ != Never) Advance(stagedAt_);
    return reached;
  }

  // What a check pass asks at `time`, and what it stages. A pass beside a download asks the update
  // server only. False if that does not answer.
  bool MakePass(Time time) {
    events_.checks.Count(time);
    passWasMade_ = true;
    if (IsWithin(time, scenario_.serverDead, scenario_.serverBack)) return false;
    const bool isOffered = IsWithin(time, scenario_.publish, scenario_.halt);
    if (!isOffered || isInstalled_ || stagedAt_ != Never) return true;
    for (size_t index = 0; index < events_.witnesses.size(); ++index) {
      const bool isDead =
          index == 1 && IsWithin(time, scenario_.witnessDead, scenario_.witnessBack);
      events_.witnesses[index].Count(time, isDead ? 1 : FilesOfWitness);
      if (isDead) return true;  // refused, without a request to the next witness
    }
    stagedAt_ = time + DownloadMs;
    return true;
  }

  // One run of packaging/update-in-window.
  void RunWindowTimer(Time started) {
    if (!window_.IsOpen(started + zone_)) {
      // Until the window opens, no run does anything. By then the phase of the runs is random.
      nextTimerRun_ =
          started + window_.UntilOpening(started + zone_) + random_.Below(AfterTimerInterval(0));
      return;
    }
    Time ended = started;
    if (passWasMade_ && started - lastTimerCheck_ >= scenario_.timerCheckInterval) {
      lastTimerCheck_ = started;
      MakePass(started);
      ended += scenario_.timerOutcomeLimit;  // most checks change nothing that ends the wait
    }
    nextTimerRun_ = AfterTimerInterval(ended);
    const Time night = window_.NightOf(started + zone_);
    if (stagedAt_ > ended || nightOfTry_ == night) return;
    nightOfTry_ = night;
    TryInstall(ended);
  }

  // True if the staged release was accepted.
  bool TryInstall(Time time) {
    if (stagedAt_ > time || !window_.IsOpen(time + zone_)) return false;
    if (scenario_.isBad != 0) {
      events_.rollbacks.Count(time);
      if (!wasRolledBack_) events_.firstRollbacks.Count(time);
      wasRolledBack_ = true;
      return false;
    }
    now_ = time + InstallMs;
    events_.installs.Count(now_);
    stagedAt_ = Never;
    isInstalled_ = true;
    stopsForNewBuild_ = true;
    return true;
  }

  Time AfterTimerInterval(Time time) {
    if (scenario_.timerInterval == 0) return Never;
    return time + scenario_.timerInterval + random_.Below(TimerAccuracyMs);
  }

  static bool IsWithin(Time time, Time from, Time until) { return from <= time && time < until; }

  const Scenario& scenario_;
  const Window& window_;
  Events& events_;
  Random random_;
  const Time zone_;  // by how much its clock is ahead of that of the first machine
  const std::string installId_;

  Time now_ = 0;
  Time offAt_ = 0;
  Time stagedAt_ = Never;     // when the download ends or has ended
  bool passWasMade_ = false;  // since the start of the service
  bool isInstalled_ = false;
  bool stopsForNewBuild_ = false;
  bool wasRolledBack_ = false;
  // Of the window's timer.
  Time nextTimerRun_ = Never;
  Time lastTimerCheck_ = -Never;
  Time nightOfTry_ = -Never;
};

// The waits of the loop after failed passes in a row, up to the first of the longest.
std::vector<Milliseconds> BackOff() {
  std::vector<Milliseconds> waits;
  Service::RunUpdateLoop({[&waits](Milliseconds wait) {
                            waits.push_back(wait);
                            return wait != Service::BackOffCapMs;
                          },
                          [] { return false; },
                          [] { return false; },
                          {}});
  waits.erase(waits.begin());  // before the first pass
  return waits;
}

void Simulate(const Scenario& scenario) {
  const Window window(scenario);
  Events events(scenario.end);
  for (int64_t number = 0; number < scenario.machines; ++number) {
    Machine(scenario, window, number, events).Live();
  }
  printf("{\"bin ms\": %" PRId64 ",\n\"check limit ms\": %" PRId32, BinMs, CheckLimitMs);
  PrintList("back-off ms", BackOff());
  for (const Counter* counter :
       {&events.checks, &events.witnesses[0], &events.witnesses[1], &events.witnesses[2],
        &events.installs, &events.rollbacks, &events.firstRollbacks}) {
    counter->Print();
  }
  printf("}\n");
}

}  // namespace
}  // namespace Vantrell::Fleet

int main(int count, char** arguments) {
  Vantrell::Fleet::Scenario scenario;
  for (int index = 1; index < count; ++index) {
    if (!Vantrell::Fleet::ReadArgument(arguments[index], scenario)) {
      fprintf(stderr, "fleet: %s is not NAME=NUMBER; bench/fleet.cpp has the names\n",
              arguments[index]);
      return 2;
    }
  }
  Vantrell::Fleet::Simulate(scenario);
  return 0;
}
