#pragma once

// What the JSON benchmarks share: the parsers, a measurement in a process of its own, and the
// printing of a row.

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <rapidjson/document.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "json/json_parser.h"

namespace Vantrell {

// Parses the text, frees the value, and ends the process if the text is refused.
using Parse = void (*)(const std::string& text);

inline void ParseOurs(const std::string& text) {
  if (!ParseJson(text, nullptr)) _exit(1);
}

inline void ParseRapidjson(const std::string& text) {
  rapidjson::Document document;
  if (document.Parse(text.data(), text.size()).HasParseError()) _exit(1);
}

inline void ParseNlohmann(const std::string& text) {
  const auto document = nlohmann::json::parse(text, nullptr, false);
  if (document.is_discarded()) _exit(1);
}

struct Rival {
  const char* name;
  Parse parse;
};
inline constexpr Rival Rivals[] = {{"rapidjson", ParseRapidjson}, {"nlohmann-json", ParseNlohmann}};

// What `measure(parse, text)` returns in a child process. Every parse begins with a heap without
// free memory, as in the service, which gives that back to the kernel after each pass.
template <typename Measure>
double MeasureInChild(const Measure& measure, Parse parse, const std::string& text) {
  int ends[2];
  if (pipe(ends) != 0) exit(1);
  const pid_t child = fork();
  if (child == 0) {
    malloc_trim(0);
    const double result = measure(parse, text);
    _exit(write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1);
  }
  close(ends[1]);
  double result = 0;
  if (read(ends[0], &result, sizeof result) != sizeof result) {
    fputs("a parser refused the text\n", stderr);
    exit(1);
  }
  waitpid(child, nullptr, 0);
  close(ends[0]);
  return result;
}

// The value below which `share` of all values are.
inline double Quantile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  return values[static_cast<size_t>(share * static_cast<double>(values.size() - 1))];
}

// Measures our parser and its rivals in turn, and prints a row for each rival, as in rows.py.
template <typename Measure>
void Compare(const std::string& name, const char* unit, const std::string& text, int rounds,
             const Measure& measure, const char* goal) {
  std::vector<double> ours;
  std::vector<double> theirs[std::size(Rivals)];
  std::vector<double> ratios[std::size(Rivals)];
  for (int round = 0; round < rounds; ++round) {
    ours.push_back(MeasureInChild(measure, ParseOurs, text));
    for (size_t rival = 0; rival < std::size(Rivals); ++rival) {
      theirs[rival].push_back(MeasureInChild(measure, Rivals[rival].parse, text));
      ratios[rival].push_back(ours.back() / theirs[rival].back());
    }
  }
  for (size_t rival = 0; rival < std::size(Rivals); ++rival) {
    printf("%s\t%.2f %s\t%s\t%.2f %s\t%.2f\t%.2f to %.2f\t%s\n", name.c_str(), Quantile(ours, 0.5),
           unit, Rivals[rival].name, Quantile(theirs[rival], 0.5), unit,
           Quantile(ratios[rival], 0.5), Quantile(ratios[rival], 0.25),
           Quantile(ratios[rival], 0.75), rival == 0 ? goal : "-");
  }
  fflush(stdout);
}

}  // namespace Vantrell
