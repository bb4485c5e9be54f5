#include "base/file_content.h"
#include "settings/maintenance_window.h"
#include "settings/settings_file.h"
#include "tests/unit/temporary_folder.h"

namespace Vantrell {

namespace fs = std::filesystem;

TEST(Settings, AreReadTolerantly) {
  EXPECT_EQ(TrimSetting(" \t\n a b \t\r\n "), "\n a b");
  EXPECT_EQ(ParseChannel("BeTa"), "beta");
  for (const char* text : {"", "beta2", "dev # test"})
    EXPECT_EQ(ParseChannel(text), "prod") << text;
  EXPECT_EQ(ParseHost("https://host:8443/path//") + ParseHost("https://"), "host:8443/path");
  for (const char* host : {"", "http://h", "HTTPS://h"}) EXPECT_EQ(ParseHost(host), host);
}

constexpr const char* ReadCases[][3] = {
    {"blanks around key and value", "\t Key \t= a=b= \t\r\n", "a=b="},
    {"a comment behind a value is part of it", "Key=dev # test\n", "dev # test"},
    {"comments, other keys", "#Key=a\n#=\n #Key=a\nkey=a\nKeys=a\n", "fallback"},
    {"lines without an equals sign", "Key\n\nKey=dev", "dev"},
    {"an empty value hides no later line", "Key=\nKey= \r\nKey=dev\n", "dev"},
    {"the first line with a value wins", "Key=dev\nKey=beta\n", "dev"},
};

TEST(ReadSetting, TakesTheFirstLineOfTheKeyWithAValue) {
  const TemporaryFolder folder;
  for (const auto& [behaviour, file, value] : ReadCases) {
    EXPECT_EQ(ReadSettingFrom(folder.Write("conf", file), "Key", "fallback"), value) << behaviour;
  }
  EXPECT_EQ(ReadSettingFrom(folder.Path("absent"), "Key", nullptr), "");
}

constexpr const char* WriteCases[][3] = {
    {"a new key goes to the end", "A=1\nB=2", "A=1\nB=2\nKey=new\n"},
    {"all lines of the key", "Key=a\n Key = b\r\nKey=\n", "Key=new\nKey=new\nKey=new\n"},
    {"other lines stay", "#Key=\r\n\n\tx = \nx\nKey=a\n =", "#Key=\r\n\n\tx = \nx\nKey=new\n =\n"},
};

TEST(WriteSetting, ReplacesEveryLineOfTheKeyAndKeepsTheRest) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("etc/vantrell/conf");
  EXPECT_TRUE(WriteSettingTo(path, "Key", "first"));
  EXPECT_EQ(ReadWholeFile(path), "Key=first\n");
  for (const auto& [behaviour, before, after] : WriteCases) {
    folder.Write("etc/vantrell/conf", before);
    fs::permissions(folder.Write("etc/vantrell/conf.tmp", "left over"), fs::perms::owner_all);
    EXPECT_TRUE(WriteSettingTo(path, "Key", "new"));
    EXPECT_EQ(ReadWholeFile(path), after) << behaviour;
    EXPECT_EQ(static_cast<int>(fs::status(path).permissions()), 0644);
  }
  fs::create_symlink("/dev/full", path + ".tmp");
  ASSERT_FALSE(WriteSettingTo(path, "Key", "lost"));
  EXPECT_EQ(ReadWholeFile(path), WriteCases[2][2]);
}

TEST(ClockTime, IsHoursColonMinutesAndNothingBehind) {
  int minutes = -1;
  for (const char* refused : {"24:00", "02:60", "-1:00", "1:-1", "2", "2 :00", "02:00x", "02-00"}) {
    EXPECT_FALSE(ParseClockTime(refused, &minutes)) << refused;
  }
  EXPECT_EQ(minutes, -1);
  EXPECT_TRUE(ParseClockTime(" +2: +5", &minutes));
  EXPECT_EQ(minutes, 125);
}

TEST(MaintenanceWindow, HoldsItsFirstMinuteAndNotThatOfItsEnd) {
  for (const int now : {120, 299}) EXPECT_TRUE(WindowContains("02:00", "05:00", true, now)) << now;
  for (const int now : {119, 300}) EXPECT_FALSE(WindowContains("02:00", "05:00", true, now)) << now;
  for (const int now : {1320, 179}) EXPECT_TRUE(WindowContains("22:00", "3:0", true, now)) << now;
  for (const int now : {1319, 180}) EXPECT_FALSE(WindowContains("22:00", "3:0", true, now)) << now;
  for (const int now : {239, 240}) EXPECT_TRUE(WindowContains("04:00", "04:00", true, now)) << now;
}

TEST(MaintenanceWindow, ThatIsUnreadableIsOpenAndSaysSoUnlessItIsOff) {
  testing::internal::CaptureStderr();
  EXPECT_TRUE(WindowContains("02:00", "5", true, 720));
  EXPECT_TRUE(WindowContains("02:00", "5", false, 720));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "[Update] window '02:00'-'5' is unreadable; treating the window as open\n");
}

}  // namespace Vantrell
