#include "settings/settings_file.h"

#include "base/file_content.h"
#include "tests/unit/temporary_folder.h"

namespace Vantrell {

namespace fs = std::filesystem;

TEST(Settings, TakeARingInEitherCaseAndAnUnknownOneAsProd) {
  EXPECT_EQ(ParseChannel("BeTa"), "beta");
  for (const char* text : {"", "beta2", "dev # test"})
    EXPECT_EQ(ParseChannel(text), "prod") << text;
}

TEST(Settings, TakeAHostWithoutItsSchemeAndLastSlashes) {
  EXPECT_EQ(ParseHost("https://host:8443/path//"), "host:8443/path");
  for (const char* host : {"", "http://h", "HTTPS://h"}) EXPECT_EQ(ParseHost(host), host);
}

TEST(ReadSetting, TakesTheFirstLineOfTheKeyWithAValue) {
  const TemporaryFolder folder;
  const struct {
    std::string behaviour, content, value;
  } cases[] = {
      {"blanks around key and value", "\t Key \t= a=b= \t\r\n", "a=b="},
      {"a comment after a value is part of it", "Key=dev # test\n", "dev # test"},
      {"comments and other keys", "#Key=a\n#=\n #Key=a\nkey=a\nKeys=a\n", "fallback"},
      {"lines without an equals sign", "Key\n\nKey=dev", "dev"},
      {"an empty value does not hide a later line", "Key=\nKey= \r\nKey=dev\n", "dev"},
      {"the first line with a value is used", "Key=dev\nKey=beta\n", "dev"},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.behaviour);
    EXPECT_EQ(ReadSettingFrom(folder.Write("conf", given.content), "Key", "fallback"), given.value);
  }
  EXPECT_EQ(ReadSettingFrom(folder.Path("absent"), "Key", nullptr), "");
}

TEST(WriteSetting, ReplacesTheFileAndInItEveryLineOfTheKey) {
  const struct {
    std::string behaviour, before, after;
  } cases[] = {
      {"a new key goes to the end", "A=1\nB=2", "A=1\nB=2\nKey=new\n"},
      {"all lines of the key", "Key=a\n Key = b\r\nKey=\n", "Key=new\nKey=new\nKey=new\n"},
      {"other lines stay", "#Key=\r\n\n\tx = \nKey=a\n =", "#Key=\r\n\n\tx = \nKey=new\n =\n"},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.behaviour);
    const TemporaryFolder folder;
    const std::string path = folder.Write("conf", given.before);
    fs::create_hard_link(path, folder.Path("old"));
    fs::permissions(folder.Write("conf.tmp", "from a crash"), fs::perms::owner_all);
    EXPECT_TRUE(WriteSettingTo(path, "Key", "new"));
    EXPECT_EQ(ReadWholeFile(path), given.after);
    EXPECT_EQ(ReadWholeFile(folder.Path("old")), given.before);
    EXPECT_EQ(static_cast<int>(fs::status(path).permissions()), 0644);
  }
}

TEST(WriteSetting, KeepsAFileThatCannotBeRead) {
  const TemporaryFolder folder;
  fs::create_symlink("/proc/self/mem", folder.Path("conf"));
  EXPECT_FALSE(WriteSettingTo(folder.Path("conf"), "Key", "new"));
  EXPECT_TRUE(fs::is_symlink(folder.Path("conf")));
}

TEST(WriteSetting, MakesTheFileAndKeepsItOnAFullDisk) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("etc/vantrell/conf");
  EXPECT_TRUE(WriteSettingTo(path, "Key", "new"));
  fs::create_symlink("/dev/full", path + ".tmp");
  EXPECT_FALSE(WriteSettingTo(path, "Key", "lost"));
  EXPECT_EQ(ReadWholeFile(path), "Key=new\n");
}

}  // namespace Vantrell
