#!/bin/bash
# Builds and runs everything; the last line says how it went.
#
#   ./test.sh                  all of it
#   ./test.sh checks           formatting, includes, shell scripts, static analysis
#   ./test.sh unit             unit tests: plain with clang++, with g++ under the sanitizers
#   ./test.sh system [NAME]    system tests on booted machines, those whose name holds NAME
#
# VANTRELL_FLAVOUR=asan or tsan runs system tests against a sanitized build of the service.
set -uo pipefail
cd "$(dirname "$(readlink -f "$0")")" || exit

readonly Logs=$PWD/build/logs
passed=0 failed=0 skipped=0

heading() { printf '\n== %s\n' "$*"; }

lose() { # NAME LOG
  echo "FAILED  $1"
  tail -n 60 "$2"
  failed=$((failed + 1))
}

# Counts one check that either holds or not; what it said is shown where it does not.
check() { # NAME COMMAND...
  local name=$1 log=$Logs/${1//[^a-z0-9]/-}.log
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

build() { # PRESET [CMAKE OPTION...]
  local preset=$1
  shift
  cmake --preset "$preset" -DBUILD_TESTING=ON "$@" && cmake --build --preset "$preset"
}

# Counts every test of the preset's build, and a build that fails as one that failed.
unit() { # PRESET
  local log=$Logs/unit-$1.log
  if ! build "$1" >"$log" 2>&1; then
    lose "build $1" "$log"
    return
  fi
  ctest --preset "$1" >"$log" 2>&1
  local result=$? total lost
  total=$(grep -oE 'tests failed out of [0-9]+' "$log" | grep -oE '[0-9]+$')
  lost=$(number_of 'tests failed' "$log")
  echo "$([ $result = 0 ] && echo 'ok    ' || echo FAILED)  unit tests, $1: ${total:-0}, $lost failed"
  [ $result = 0 ] || tail -n 80 "$log"
  # Not a single test is a failure too.
  [ "${total:-0}" -gt 0 ] || lost=1 total=1
  passed=$((passed + total - lost))
  failed=$((failed + lost))
}

# Starts system tests in the background: they wait far more than they compute, and builds can
# go on beside them.
begin_system() { # FLAVOUR [PYTEST OPTION...]
  local flavour=$1 log=$Logs/system-$1.log
  shift
  system_job=
  if ! lab/build "$flavour" >"$log" 2>&1; then
    lose "build of the lab's service, $flavour" "$log"
    return
  fi
  VANTRELL_FLAVOUR=$flavour /usr/bin/python3 -m pytest -q -p no:cacheprovider -n 6 \
    --durations 5 "$@" tests/system >"$log" 2>&1 &
  system_job=$!
}

# Waits for them, shows what they said and counts them.
end_system() { # FLAVOUR
  local log=$Logs/system-$1.log result=0 lost
  [ -n "$system_job" ] || return
  wait "$system_job" || result=$?
  grep -vE '^(bringing up|scheduling|$)' "$log"
  tail -n 1 "$log" >"$log.summary"
  lost=$(($(number_of failed "$log.summary") + $(number_of 'errors?' "$log.summary")))
  [ $result = 0 ] || [ $lost -gt 0 ] || lost=1
  passed=$((passed + $(number_of passed "$log.summary")))
  skipped=$((skipped + $(number_of skipped "$log.summary")))
  failed=$((failed + lost))
}

format_check() { git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror; }
shell_check() { grep -lrE '^#!/bin/(ba)?sh' --include='*' ./*.sh .ci lab packaging publisher scripts \
  bench | xargs shellcheck; }
tidy() { build clang && run-clang-tidy -quiet -j "$(nproc)" -p build/clang \
  "^$PWD/(base|json|settings|trust|identity|update|apply|service)/"; }

checks() {
  heading "Checks"
  check 'formatting' format_check
  check 'includes' scripts/check-includes
  check 'shell scripts' shell_check
  check 'static analysis' tidy
}

unit_tests() {
  heading "Unit tests"
  for preset in clang asan tsan; do unit $preset; done
}

system_tests() { # FLAVOUR [PYTEST OPTION...]
  heading "System tests on booted machines, $1"
  begin_system "$@"
  end_system "$1"
}

everything() {
  # What runs all threads and reads all input, and one whole apply, under the sanitizers too.
  local sanitized='refusals or hostile or service or seat or road or each_user'
  begin_system release
  checks
  unit_tests
  heading "System tests on booted machines, release"
  end_system release
  system_tests asan -k "$sanitized"
  system_tests tsan -k "$sanitized"
}

scripts/install-prerequisites test || exit 1
mkdir -p "$Logs"
case "${1-all}" in
  all) everything ;;
  checks) checks ;;
  unit) unit_tests ;;
  system) system_tests "${VANTRELL_FLAVOUR:-release}" ${2:+-k "$2"} ;;
  *) sed -n '2,10s/^# \{0,1\}//p' "$0"; exit 2 ;;
esac

echo
line="$passed passed, $failed failed"
[ $skipped = 0 ] || line="$line, $skipped skipped"
echo "$line"
[ $failed = 0 ]
