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

enum class BundleKind { shipped, frenchWithoutSettings, none, notThere };

struct LookupCase {
  const char* name;
  BundleKind bundle;
  const char* language;
  const char* key;
  const char* expected;
};
void PrintTo(const LookupCase& c, std::ostream* os) { *os << c.name; }

class Lookup : public Localization, public ::testing::WithParamInterface<LookupCase> {};

TEST_P(Lookup, GivesTheTextTheUserSees) {
  const auto& c = GetParam();
  std::optional<std::string> path;
  switch (c.bundle) {
    case BundleKind::shipped: path = shippedBundle(); break;
    case BundleKind::frenchWithoutSettings:
      dir_.write("Velqor.bundle/en.lproj/Localizable.strings", "\"SETTINGS\" = \"Settings\";\n\"CANCEL\" = \"Cancel\";\n");
      dir_.write("Velqor.bundle/fr.lproj/Localizable.strings", "\"CANCEL\" = \"Annuler\";\n");
      path = dir_.path("Velqor.bundle");
      break;
    case BundleKind::none: break;
    case BundleKind::notThere: path = dir_.path("not-there"); break;
  }
  useBundle(path, c.language);
  EXPECT_EQ(plugin_->getLocalizingString(c.key), c.expected);
  EXPECT_EQ(ops_.at("getLocalizingString:")(HostCall{nullptr, Value(c.key)}), Value(c.expected));
}

INSTANTIATE_TEST_SUITE_P(
    Keys, Lookup,
    ::testing::Values(LookupCase{"regionFallsBackToItsLanguage", BundleKind::shipped, "fr-CA", "CANCEL", "Annuler"},
                      LookupCase{"utf16Table", BundleKind::shipped, "es", "SETTINGS", "Ajustes"},
                      LookupCase{"unknownLanguageGetsEnglish", BundleKind::shipped, "ja", "CANCEL", "Cancel"},
                      LookupCase{"missingKeyIsTheKey", BundleKind::shipped, "en", "NO_SUCH_KEY", "NO_SUCH_KEY"},
                      // The user's table decides, even when English has the key.
                      LookupCase{"keyMissingFromTheUsersTable", BundleKind::frenchWithoutSettings, "fr", "SETTINGS",
                                 "SETTINGS"},
                      LookupCase{"keyInTheUsersTable", BundleKind::frenchWithoutSettings, "fr", "CANCEL", "Annuler"},
                      LookupCase{"noBundle", BundleKind::none, "en", "SETTINGS", ""},
                      LookupCase{"bundleNotThere", BundleKind::notThere, "en", "SETTINGS", ""}),
    [](const auto& info) { return std::string(info.param.name); });

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
  EXPECT_EQ(shown["message"], "Der Kamerazugriff ist f\u00FCr diese App deaktiviert. Erlaube ihn in den Einstellungen, um "
                             "Fotos und Videos aufzunehmen.");
  EXPECT_EQ(shown["buttons"], nlohmann::json::array({"Einstellungen", "Abbrechen"}));
  EXPECT_EQ(shown["title"], "");
  EXPECT_EQ(shown["style"], 1);
}

}  // namespace
}  // namespace velqor
