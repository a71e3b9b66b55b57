#include "tests/PluginHarness.h"

#include "platform/StringsFile.h"

namespace velqor {
namespace {

using testing::PluginHarness;

struct StringsCase {
  const char* name;
  std::string bytes;
  std::map<std::string, std::string> expected;
};
void PrintTo(const StringsCase& c, std::ostream* os) { *os << c.name; }

class StringsParsing : public ::testing::TestWithParam<StringsCase> {};

TEST_P(StringsParsing, ReadsTheTable) {
  auto parsed = StringsFile::parse(GetParam().bytes);
  ASSERT_TRUE(parsed.ok()) << parsed.status();
  EXPECT_EQ(*parsed, GetParam().expected);
}

std::string utf16(const std::u16string& s, bool bigEndian) {
  std::string out = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (char16_t c : s) {
    char hi = static_cast<char>(c >> 8), lo = static_cast<char>(c & 0xFF);
    out += bigEndian ? std::string{hi, lo} : std::string{lo, hi};
  }
  return out;
}

INSTANTIATE_TEST_SUITE_P(
    Formats, StringsParsing,
    ::testing::Values(
        StringsCase{"plain", "\"A\" = \"b\";", {{"A", "b"}}},
        StringsCase{"comments", "/* c */\n// line\n\"A\" /* mid */ = \"b\"; // end", {{"A", "b"}}},
        StringsCase{"escapes", R"("A" = "q\"uote\\ \n tab\t \U00E9 \u2019";)",
                    {{"A", "q\"uote\\ \n tab\t \xC3\xA9 \xE2\x80\x99"}}},
        StringsCase{"unquotedKey", "SETTINGS = \"Settings\";", {{"SETTINGS", "Settings"}}},
        StringsCase{"keyAlone", "\"CANCEL\";", {{"CANCEL", "CANCEL"}}},
        StringsCase{"utf8Bom", "\xEF\xBB\xBF\"A\"=\"\xC3\xA9\";", {{"A", "\xC3\xA9"}}},
        StringsCase{"utf16le", utf16(u"\"A\" = \"\u00e9\U0001F600\";", false), {{"A", "\xC3\xA9\xF0\x9F\x98\x80"}}},
        StringsCase{"utf16be", utf16(u"\"A\" = \"b\";", true), {{"A", "b"}}},
        StringsCase{"laterWins", "\"A\"=\"1\";\"A\"=\"2\";", {{"A", "2"}}},
        StringsCase{"empty", "  \n", {}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(StringsParsingErrors, ReportMalformedTables) {
  for (std::string bad : {"\"A\" = \"b\"", "\"A\" = \"b", "/* open", "\"A\" = ;", "\xFF\xFE\x41"})
    EXPECT_FALSE(StringsFile::parse(bad).ok()) << bad;
}

class Localization : public PluginHarness {
 protected:
  void useBundle(std::optional<std::string> path, const std::string& language) {
    SimDeviceState s;
    s.bundlePath = std::move(path);
    s.cameraAccess = AccessState::denied;
    language_ = language;
    build(s);
  }
  void customize(PlatformServices& s) override { s.locale.preferredLanguages = {language_}; }
  std::string language_ = "en";
};

std::string shippedBundle() { return std::string(VELQOR_SOURCE_DIR) + "/resources/Velqor.bundle"; }

TEST_F(Localization, ShippedBundleHasEveryKeyInEveryLanguage) {
  for (const char* lang : {"en", "fr", "de", "es"}) {
    useBundle(shippedBundle(), lang);
    for (const char* key : {"CAMERA_PERMISSION_REJECT_CONFIRM", "PHOTOLIBRARY_PERMISSION_REJECT_CONFIRM", "SETTINGS",
                            "CANCEL"})
      EXPECT_NE(plugin_->getLocalizingString(key), key) << lang << " " << key;
  }
}

TEST_F(Localization, PicksTheUsersLanguageWithEnglishAsFallback) {
  useBundle(shippedBundle(), "fr-CA");
  EXPECT_EQ(plugin_->getLocalizingString("CANCEL"), "Annuler");
  useBundle(shippedBundle(), "es");
  EXPECT_EQ(plugin_->getLocalizingString("SETTINGS"), "Ajustes");
  useBundle(shippedBundle(), "ja");
  EXPECT_EQ(plugin_->getLocalizingString("CANCEL"), "Cancel");
}

TEST_F(Localization, MissingKeyIsTheKeyAndMissingBundleIsEmpty) {
  useBundle(shippedBundle(), "en");
  EXPECT_EQ(plugin_->getLocalizingString("NO_SUCH_KEY"), "NO_SUCH_KEY");
  useBundle(std::nullopt, "en");
  EXPECT_EQ(plugin_->getLocalizingString("SETTINGS"), "");
  useBundle(dir_.path("not-there"), "en");
  EXPECT_EQ(plugin_->getLocalizingString("SETTINGS"), "");
}

TEST_F(Localization, PromptWithoutBundleShowsEmptyTexts) {
  useBundle(std::nullopt, "en");
  takePicture("[]");
  runAll();
  auto shown = events_->events().at(0);
  EXPECT_EQ(shown["event"], "alertShown");
  EXPECT_EQ(shown["message"], "");
  EXPECT_EQ(shown["buttons"], nlohmann::json::array({"", ""}));
}

TEST_F(Localization, PromptShowsTheLocalizedTexts) {
  useBundle(shippedBundle(), "de");
  takePicture("[]");
  runAll();
  auto shown = events_->events().at(0);
  EXPECT_EQ(shown["buttons"], nlohmann::json::array({"Einstellungen", "Abbrechen"}));
  EXPECT_EQ(shown["title"], "");
  EXPECT_EQ(shown["style"], 1);
}

}  // namespace
}  // namespace velqor
