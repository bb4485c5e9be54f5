#!/bin/bash
# Builds the project, checks its sources and runs its tests.
set -uo pipefail
cd "$(dirname "$(readlink -f "$0")")" || exit

usage() {
  cat <<'TEXT'
usage: ./test.sh                  everything
       ./test.sh quick            layout, includes, pages, dev build, unit tests: seconds once built
       ./test.sh checks           layout, includes, pages, shell scripts, Python, static analysis
       ./test.sh unit [NAME]      unit tests under the sanitizers: with clang++ and with g++;
                                  NAME: only tests whose name contains it, in the dev build
       ./test.sh system [NAME]    system tests on booted machines;
                                  NAME: only tests that `pytest -k NAME` selects
       ./test.sh faults           hundreds of failing system calls, one after another: minutes
       ./test.sh race             everything at once under the thread sanitizer, and a soak: minutes

Installs missing packages with apt-get. The last line says how many tests and checks passed.
VANTRELL_FLAVOUR=asan or tsan runs unit and system tests in that sanitized build alone.
VANTRELL_LAB_SUITE=trixie runs system tests on Debian 13. Everything runs some of them there.
TEXT
}

readonly Logs=$PWD/build/logs
readonly Suite=${VANTRELL_LAB_SUITE:-bookworm}
declare -A system_jobs
passed=0 failed=0 skipped=0 analysis_job=''

heading() { printf '\n== %s\n' "$*"; }

lose() { # NAME LOG
  echo "FAILED  $1"
  tail -n 60 "$2"
  failed=$((failed + 1))
}

# Runs one command as a check; its output is shown only if it fails.
check() { # NAME COMMAND...
  local name=$1 log=$Logs/${1//[^a-zA-Z0-9]/-}.log
  shift
  if "$@" >"$log" 2>&1; then
    echo "ok      $name"
    passed=$((passed + 1))
  else
    lose "$name" "$log"
  fi
}

# The number before a word in the last line that has it, such as "3 passed"; 0 without one.
number_of() { # WORD LOG
  local found
  found=$(grep -oE "[0-9]+ $1" "$2" | tail -n 1 | grep -oE '[0-9]+')
  echo "${found:-0}"
}

# Ninja runs CMake by itself when a CMakeLists.txt has changed, but not for the presets: they may
# name another compiler than the cache, which CMake refuses.
configure() { # PRESET
  [ "build/$1/build.ninja" -nt CMakePresets.json ] || cmake --fresh --preset "$1"
}
build() { configure "$1" && cmake --build --preset "$1"; } # PRESET

# Counts the tests of the preset's build, and a build that fails as one failed test.
unit() { # PRESET [CTEST OPTION...]
  local preset=$1 log=$Logs/unit-$1.log
  shift
  if ! build "$preset" >"$log" 2>&1; then
    lose "build $preset" "$log"
    return
  fi
  ctest --preset "$preset" -j "$(nproc)" "$@" >"$log" 2>&1
  local result=$? total lost
  total=$(grep -oE 'tests failed out of [0-9]+' "$log" | grep -oE '[0-9]+$')
  lost=$(number_of 'tests failed' "$log")
  # A run without any test is a failure, too.
  [ "${total:-0}" -gt 0 ] || result=1 lost=1 total=1
  [ $result = 0 ] || [ "$lost" -gt 0 ] || lost=1
  echo "$([ $result = 0 ] && echo 'ok    ' || echo FAILED)  unit tests, $preset: $total, $lost failed"
  [ $result = 0 ] || tail -n 80 "$log"
  passed=$((passed + total - lost))
  failed=$((failed + lost))
}

pytest() { /usr/bin/python3 -m pytest -q -p no:cacheprovider "$@" tests/system; }

# Starts system tests in the background, so that builds can run at the same time: the tests wait
# far more than they compute.
begin_system() { # FLAVOUR [NAME [SUITE]]
  local flavour=$1 suite=${3:-$Suite} options=(${2:+-k "$2"})
  local log=$Logs/system-$flavour-$suite.log
  if ! lab/build "$flavour" >"$log" 2>&1; then
    lose "build of the lab's service, $flavour" "$log"
    return
  fi
  # Workers take longer to start than a few tests take to run.
  if [ -z "${2-}" ]; then
    options+=(-n 10 --durations 5)
  elif [ "$(pytest --collect-only -k "$2" | grep -c ::)" -gt 3 ]; then
    options+=(-n 5 --durations 5)
  fi
  VANTRELL_FLAVOUR=$flavour VANTRELL_LAB_SUITE=$suite pytest "${options[@]}" >"$log" 2>&1 &
  system_jobs[$flavour-$suite]=$!
}

# Waits for the system tests, shows their output and counts them.
end_system() { # FLAVOUR [SUITE]
  local suite=${2:-$Suite} result=0 lost
  local job=${system_jobs[$1-$suite]-} log=$Logs/system-$1-$suite.log
  [ -n "$job" ] || return
  heading "System tests on booted machines, $1, $suite"
  wait "$job" || result=$?
  grep -vE '^(bringing up|scheduling|$)' "$log"
  tail -n 1 "$log" >"$log.summary"
  lost=$(($(number_of failed "$log.summary") + $(number_of 'errors?' "$log.summary")))
  [ $result = 0 ] || [ $lost -gt 0 ] || lost=1
  passed=$((passed + $(number_of passed "$log.summary")))
  skipped=$((skipped + $(number_of skipped "$log.summary")))
  failed=$((failed + lost))
}

# Files of the project, those not yet added to git included.
files() { # [PATTERN...]
  local file
  git ls-files --cached --others --exclude-standard -- "$@" | while read -r file; do
    [ ! -f "$file" ] || echo "$file"
  done
}
scripts_of() { # INTERPRETER, as an extended regular expression
  files | xargs awk "FNR == 1 && /^#!.*\/($1)\$/ { print FILENAME }"
}
python_files() { { files '*.py'; scripts_of python3; } | sort -u; }

cpp_layout() { files '*.h' '*.cpp' '*.c' | xargs clang-format --dry-run -Werror; }
shell_check() { scripts_of '(ba)?sh' | xargs shellcheck; }
python_lint() { python_files | xargs flake8; }
python_layout() { python_files | xargs autopep8 --diff --exit-code --jobs 0; }
manual_pages() {
  local socket=build/vantrell-harbor-control-socket.7
  packaging/man/from-markdown -v name=vantrell-harbor-control-socket -v date=2026-11-22 \
    docs/control-socket.md >$socket &&
    files '*.[1-8]' | xargs mandoc -T lint -W warning $socket
}
# Each file that clang-tidy reads costs seconds for the headers of the C++ library: the files of a
# directory are one to it, but for programs. It follows the paths of included functions in files of
# this name only. A finding is an error, by .clang-tidy.
tidy() {
  local joined=build/tidy folder config all
  rm -rf $joined
  for config in $(files '*/.clang-tidy'); do install -D "$config" "$joined/$config"; done
  for folder in $(files '*.cpp' | xargs dirname | sort -u); do
    case $folder in bench | fuzz | lab/*) files "$folder/*.cpp"; continue ;; esac
    all=$joined/$folder/UnifiedSource-all.cpp
    mkdir -p "${all%/*}"
    files "$folder/*.cpp" | sed 's/.*/#include "&"/' >"$all"
    echo "$all"
  done | xargs -P "$(nproc)" -I '{}' clang-tidy -quiet --checks=-bugprone-suspicious-include '{}' -- \
    -std=c++20 -I. -Ibuild/asan/generated -DTEST_DATA_DIR='""' 2>&1 | sed '/ warnings\{0,1\} generated\.$/d'
}

quick_checks() {
  heading "Checks"
  check 'C++ layout' cpp_layout
  check 'includes' scripts/check-includes
  check 'pages' scripts/check-pages
}

quick() {
  quick_checks
  unit dev
}

checks() {
  quick_checks
  check 'shell scripts' shell_check
  check 'manual pages' manual_pages
  check 'Python' python_lint
  check 'Python layout' python_layout
}

# Starts the static analysis in the background. It takes what the processors have left: nothing
# waits for it, and what happens on a machine has time limits.
begin_analysis() {
  local log=$Logs/clang-tidy.log
  # For the generated headers.
  { configure asan && cmake build/asan; } >"$log" 2>&1 || { lose 'configuring asan' "$log"; return; }
  { renice -n 19 "$BASHPID" && tidy; } >"$log" 2>&1 &
  analysis_job=$!
}

end_analysis() {
  [ -z "$analysis_job" ] || check 'static analysis' finished_analysis
}

finished_analysis() {
  wait "$analysis_job" && return
  cat "$Logs/clang-tidy.log"
  return 1
}

all_checks() {
  checks
  begin_analysis
  end_analysis
}

unit_tests() { # PRESETS [CTEST OPTION...]
  heading "Unit tests"
  local preset
  for preset in $1; do unit "$preset" "${@:2}"; done
}

fuzzing() {
  heading "Fuzzing, 10 s each"
  local target
  for target in fuzz/seeds/*; do check "fuzzing, ${target##*/}" fuzz/run "${target##*/}" 10; done
}

system_tests() { # FLAVOUR [NAME]
  begin_system "$@"
  end_system "$1"
}

marked_tests() { # MARKER FLAVOUR
  local -x PYTEST_ADDOPTS="-m $1"
  system_tests "$2"
}

races() {
  marked_tests race release
  marked_tests race tsan
}

everything() {
  # Under the sanitizers only tests that run all threads, and one whole apply; under that of
  # addresses also those that read faulty and hostile input.
  local threads='test_service or test_seat or each_user_gets'
  # On Debian 13: an install by each part of the package, from the first to the removal.
  local newer='confined_service_sets or package_starts or timer_installs or poweroff_waits'
  newer="$newer or rolled_back_wherever or all and unpacking"
  # The system tests of a flavour run while the next step builds.
  begin_system release
  checks
  unit_tests asan
  begin_system asan "$threads or hostile or fault_of_a_server or full_disk"
  begin_analysis
  fuzzing
  unit_tests tsan
  begin_system tsan "$threads"
  [ "$Suite" = trixie ] || begin_system release "$newer" trixie
  end_system release
  end_system asan
  end_system tsan
  [ "$Suite" = trixie ] || end_system release trixie
  end_analysis
}

case "${1-all} $#" in
  '-h 1' | '--help 1') usage; exit ;;
  'all 0') run=(everything) ;;
  'quick 1') run=(quick) ;;
  'checks 1') run=(all_checks) ;;
  'unit 1') run=(unit_tests "${VANTRELL_FLAVOUR:-asan tsan}") ;;
  'unit 2') run=(unit_tests "${VANTRELL_FLAVOUR:-dev}" -R "$2") ;;
  'system '[12]) run=(system_tests "${VANTRELL_FLAVOUR:-release}" "${2-}") ;;
  'faults 1') run=(marked_tests faults release) ;;
  'race 1') run=(races) ;;
  *) usage >&2; exit 2 ;;
esac
scripts/install-prerequisites test || exit 1
mkdir -p "$Logs"
"${run[@]}"

echo
line="$passed passed, $failed failed"
[ $skipped = 0 ] || line="$line, $skipped skipped"
echo "$line"
[ $failed = 0 ]
