#include "settings/settings_file.h"

#include "base/file_content.h"
#include "tests/unit/temporary_folder.h"
#include "tests/unit/text_cases.h"

namespace Vantrell {

namespace fs = std::filesystem;

TEST(Settings, NameAKnownRingOrProdAndAHostWithoutItsSchemeAndLastSlashes) {
  for (const char* text : {"", "beta2", "dev # test"}) EXPECT_EQ(ParseChannel(text), "prod");
  EXPECT_EQ(ParseChannel("BeTa"), "beta");
  for (const char* host : {"", "http://h", "HTTPS://h"}) EXPECT_EQ(ParseHost(host), host);
  EXPECT_EQ(ParseHost("https://host:8443/path//"), "host:8443/path");
}

TEST(ReadSetting, TakesTheFirstLineOfTheKeyWithAValue) {
  const TemporaryFolder folder;
  const std::vector<TextCase> cases = {
      {"blanks around key and value", "\t Key \t= a=b # c= \t\r\n", "a=b # c="},
      {"comments and other keys", "#Key=a\n#=\n #Key=a\nkey=a\nKeys=a\n", "fallback"},
      {"lines without an equals sign", "Key\n\nKey=dev", "dev"},
      {"lines without a value, and a second one", "Key=\nKey= \r\nKey=dev\nKey=beta\n", "dev"},
  };
  ExpectEach(cases, [&folder](const std::string& content) {
    return ReadSettingFrom(folder.Write("conf", content), "Key", "fallback");
  });
  EXPECT_EQ(ReadSettingFrom(folder.Path("absent"), "Key", nullptr), "");
}

TEST(WriteSetting, ReplacesTheFileAndInItEveryLineOfTheKey) {
  const std::vector<TextCase> cases = {
      {"a new key goes to the end", "A=1\nB=2", "A=1\nB=2\nKey=new\n"},
      {"all lines of the key, and no other", "#Key=\r\n\n\tx = \nKey=a\n Key = b\r\nKey=\n =",
       "#Key=\r\n\n\tx = \nKey=new\nKey=new\nKey=new\n =\n"},
  };
  ExpectEach(cases, [](const std::string& before) {
    const TemporaryFolder folder;
    const std::string path = folder.Write("conf", before);
    fs::create_hard_link(path, folder.Path("old"));
    fs::permissions(folder.Write("conf.tmp", "from a crash"), fs::perms::owner_all);
    EXPECT_TRUE(WriteSettingTo(path, "Key", "new"));
    EXPECT_EQ(ReadWholeFile(folder.Path("old")), before);
    EXPECT_EQ(static_cast<int>(fs::status(path).permissions()), 0644);
    return ReadWholeFile(path);
  });
}

TEST(WriteSetting, MakesTheFileAndKeepsItWhenItCannotBeReadOrTheDiskIsFull) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("etc/vantrell/conf");
  EXPECT_TRUE(WriteSettingTo(path, "Key", "new"));
  fs::create_symlink("/dev/full", path + ".tmp");
  ASSERT_FALSE(WriteSettingTo(path, "Key", "lost"));  // otherwise the file has no end
  EXPECT_EQ(ReadWholeFile(path), "Key=new\n");
  fs::create_symlink("/proc/self/mem", folder.Path("conf"));
  EXPECT_FALSE(WriteSettingTo(folder.Path("conf"), "Key", "new"));
  EXPECT_TRUE(fs::is_symlink(folder.Path("conf")));
}

}  // namespace Vantrell
