#include "publisher/report_page.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "base/failure.h"
#include "base/stream.h"
#include "publisher/report_text.h"
#include "publisher/shown_text.h"

namespace Vantrell::Publisher {
namespace {

constexpr char Title[] = "Releases of vantrell-harbor";

// Without the policy, an error in the escaping could load or run something.
constexpr char Head[] = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>)";

constexpr char Style[] = R"(</title>
<style>
:root { color-scheme: light dark; --page: #f6f7f9; --card: #fff; --text: #1c2128; --soft: #57606a;
  --line: #d5dae0; --right: #1a7f37; --wrong: #cf222e; --warning: #8a5a00; --on: #fff; }
@media (prefers-color-scheme: dark) { :root { --page: #0f1318; --card: #181d24; --text: #e8ebef;
  --soft: #9aa4af; --line: #333b45; --right: #3fb950; --wrong: #ff6a61; --warning: #e0a72e;
  --on: #0f1318; } }
body { margin: 0; padding: 1.5rem 1rem; background: var(--page); color: var(--text);
  font: 1rem/1.45 system-ui, sans-serif; }
main { max-width: 100rem; margin: 0 auto; }
.rings { display: grid; gap: 1rem; margin-top: 1rem;
  grid-template-columns: repeat(auto-fit, minmax(min(100%, 27rem), 1fr)); }
h1 { font-size: 1.3rem; margin: 0; }
h2 { font-size: 1.1rem; margin: 0; }
header, .ring { display: flex; flex-wrap: wrap; gap: .3rem .8rem; align-items: center; }
p { color: var(--soft); margin: .3rem 0 0; overflow-wrap: anywhere; }
section { background: var(--card); border: 1px solid var(--line); border-radius: .6rem;
  padding: 1rem; min-width: 0; }
.version { overflow-wrap: anywhere; min-width: 0; }
.state { color: var(--on); font-weight: 600; font-size: .85rem; padding: .1rem .6rem;
  border-radius: 1rem; background: var(--wrong); }
.state.OK { background: var(--right); }
.state.WARNING { background: var(--warning); }
table { width: 100%; border-collapse: collapse; table-layout: fixed; margin-top: .8rem; }
th, td { text-align: left; vertical-align: top; font-weight: normal; padding: .5rem .5rem .5rem 0;
  border-top: 1px solid var(--line); overflow-wrap: anywhere; }
th:first-child { width: 28%; }
th:nth-child(3) { width: 26%; }
thead th { color: var(--soft); font-size: .8rem; border: 0; }
.light { display: inline-block; width: 1.3em; height: 1.3em; line-height: 1.3em; margin-right: .4em;
  border-radius: 50%; text-align: center; font-weight: 700; color: var(--on); }
.right { background: var(--right); }
.wrong { background: var(--wrong); border-radius: .2em; }
small { display: block; color: var(--soft); }
</style>
</head>
<body>
<main>
)";

std::string State(int status) {
  const std::string name = StatusName(status);
  return "<span class=\"state " + name + "\">" + name + "</span>\n";
}

// The shape and the word of a light say the same as its colour.
std::string Light(const WitnessFile& file) {
  const bool isRight = file.fault.empty();
  std::string detail = isRight ? file.remark : file.fault;
  if (!isRight && !file.remark.empty()) detail += " (" + file.remark + ")";
  return std::string("<td><span class=\"light ") + (isRight ? "right" : "wrong") +
         "\" aria-hidden=\"true\">" + (isRight ? "&#10003;" : "&#10007;") + "</span>" +
         (isRight ? "right" : "wrong") +
         (detail.empty() ? "" : "<small>" + ShownInHtml(detail) + "</small>") + "</td>\n";
}

std::string HostOf(const std::string& url) {
  const std::string rest = url.substr(url.find("//") + 2);
  return rest.substr(0, rest.find('/'));
}

std::string LightTable(const RingReport& report) {
  std::string table = "<table>\n<thead><tr><th scope=\"col\">witness</th>";
  for (const char* name : FileNames) {
    table += std::string("<th scope=\"col\">") + name + "</th>";
  }
  table += "</tr></thead>\n<tbody>\n";
  size_t number = 0;
  for (const Witness& witness : report.witnesses) {
    table += "<tr><th scope=\"row\">" + std::to_string(++number) + "<small>" +
             ShownInHtml(HostOf(witness.baseUrl)) + "</small></th>\n";
    for (const WitnessFile& file : witness.files) table += Light(file);
    table += "</tr>\n";
  }
  return table + "</tbody>\n</table>\n";
}

std::string Section(const RingReport& report) {
  std::string section = "<section>\n<div class=\"ring\"><h2>" + report.ring + "</h2>\n";
  if (!report.witnesses.empty()) {
    section += "<span class=\"version\">" + ShownInHtml(report.manifest.version) + "</span>\n";
  }
  section += State(report.status) + "</div>\n<p>" + ShownInHtml(report.outcome) + "</p>\n";
  if (!report.witnesses.empty()) section += LightTable(report);
  if (!report.refusal.empty()) {
    section += "<p>A machine says: " + ShownInHtml(report.refusal) + "</p>\n";
  }
  return section + "</section>\n";
}

}  // namespace

std::string ReportPage(const std::vector<RingReport>& reports, const std::string& madeAt) {
  const int status = OverallStatus(reports);
  std::string page = std::string(Head) + StatusName(status) + " - " + Title + Style;
  page += std::string("<header><h1>") + Title + "</h1>\n" + State(status) + "</header>\n";
  page += "<p>Seen at " + ShownInHtml(madeAt) + "</p>\n";
  page += "<div class=\"rings\">\n";
  for (const RingReport& report : reports) page += Section(report);
  return page + "</div>\n</main>\n</body>\n</html>\n";
}

bool WritePage(const std::string& path, const std::string& page, std::string& error) {
  std::string fresh = path + ".XXXXXX";
  const int number = mkstemp(fresh.data());
  if (number < 0) return FailAt(path, error);
  Stream stream(fdopen(number, "w"));
  const bool isWritten = stream &&
                         fwrite(page.data(), 1, page.size(), stream.get()) == page.size() &&
                         fflush(stream.get()) == 0 && fchmod(number, 0644) == 0 &&
                         rename(fresh.c_str(), path.c_str()) == 0;
  if (isWritten) return true;
  FailAt(path, error);
  unlink(fresh.c_str());
  return false;
}

}  // namespace Vantrell::Publisher
