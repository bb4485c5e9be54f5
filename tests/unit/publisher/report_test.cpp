#include <sys/stat.h>

#include "publisher/report_page.h"
#include "publisher/report_text.h"
#include "publisher/shown_text.h"
#include "tests/unit/temporary_folder.h"
#include "tests/unit/text_cases.h"

namespace Vantrell::Publisher {
namespace {

TEST(Report, ShowsTextsOfServersAsTextOnly) {
  const std::vector<TextCase> cases = {
      {"markup", "<b title=\"x\">&amp;", "&lt;b title=\"x\"&gt;&amp;amp;"},
      {"control characters", "\x1b[31m\n", "\\x1b[31m\\x0a"},
      {"invalid UTF-8", "\xff<", "\\xff&lt;"},
      {"a long text", std::string(301, '<').replace(0, 299, 299, 'x'),
       std::string(299, 'x') + "&lt;..."},
  };
  ExpectEach(cases, ShownInHtml);
}

TEST(Report, HasOneProbeLineWithTheWorstStatus) {
  const std::vector<RingReport> reports = {
      {"dev", StatusOk, "1|2\n is proved", {}, {}, ""},
      {"beta", StatusCritical, "x", {}, {}, ""},
      {"prod", StatusUnknown, "y", {}, {}, ""},
  };
  EXPECT_EQ(OverallStatus(reports), StatusCritical);
  EXPECT_EQ(ProbeLine(StatusCritical, reports),
            "RELEASE CRITICAL: dev 1/2\\x0a is proved; beta x; prod y");
}

TEST(Report, ReplacesThePageInOneStepForAllReaders) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("folder/page", "old");
  std::string error;
  EXPECT_TRUE(WritePage(path, "new", error));
  struct stat status = {};
  stat(path.c_str(), &status);
  EXPECT_EQ(status.st_mode & 0777, 0644);
  EXPECT_FALSE(WritePage(folder.Path("folder"), "new", error));
  EXPECT_EQ(error, folder.Path("folder") + ": Is a directory");
  const std::filesystem::directory_iterator entries(folder.Path(""));
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);  // no temporary file
}

}  // namespace
}  // namespace Vantrell::Publisher
