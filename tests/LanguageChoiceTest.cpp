#include <cstdlib>

#include "tests/PluginHarness.h"

namespace velqor {
namespace {

using testing::PluginHarness;

struct LanguageCase {
  const char* name;
  std::map<std::string, std::string> environment;  // LANGUAGE, LC_ALL, LC_MESSAGES, LANG
  std::vector<std::string> shipped;                // the bundle's localizations
  const char* shown;                               // the localization whose text the user sees
};
void PrintTo(const LanguageCase& c, std::ostream* os) { *os << c.name; }

// A user whose locale variables say what they read sees the text of the
// localization the phone would pick from the ones the application ships.
class LanguageChoice : public PluginHarness, public ::testing::WithParamInterface<LanguageCase> {
 protected:
  static constexpr const char* kVariables[] = {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"};

  void SetUp() override {
    for (const char* v : kVariables)
      if (const char* old = std::getenv(v)) saved_[v] = old;
    for (const char* v : kVariables) ::unsetenv(v);
    for (const auto& [name, value] : GetParam().environment) ::setenv(name.c_str(), value.c_str(), 1);
    // Every localization's CANCEL reads as its own folder name.
    for (const auto& loc : GetParam().shipped)
      dir_.write("Velqor.bundle/" + loc + ".lproj/Localizable.strings", "\"CANCEL\" = \"" + loc + "\";");
    dir_.write("Velqor.bundle/ko.lproj/README", "a folder without a strings table serves nobody");
    SimDeviceState s;
    s.bundlePath = dir_.path("Velqor.bundle");
    build(s);
  }
  void TearDown() override {
    PluginHarness::TearDown();
    for (const char* v : kVariables) ::unsetenv(v);
    for (const auto& [name, value] : saved_) ::setenv(name.c_str(), value.c_str(), 1);
  }
  void customize(PlatformServices& s) override { s.locale = UserLocale::fromEnvironment(); }

  std::map<std::string, std::string> saved_;
};

TEST_P(LanguageChoice, ShowsTheTextThePhoneWouldPick) {
  EXPECT_EQ(plugin_->getLocalizingString("CANCEL"), GetParam().shown);
}

using Env = std::map<std::string, std::string>;
using Shipped = std::vector<std::string>;

INSTANTIATE_TEST_SUITE_P(
    Users, LanguageChoice,
    ::testing::Values(
        LanguageCase{"fullTag", Env{{"LANGUAGE", "pt_BR"}}, Shipped{"en", "pt-BR", "pt-PT", "pt"}, "pt-BR"},
        LanguageCase{"regionDropped", Env{{"LANG", "fr_CA.UTF-8"}}, Shipped{"en", "fr", "de"}, "fr"},
        LanguageCase{"scriptKeptRegionDropped", Env{{"LANGUAGE", "zh-Hant-TW"}}, Shipped{"en", "zh-Hans", "zh-Hant"},
                     "zh-Hant"},
        LanguageCase{"regionNamesTheScript", Env{{"LANG", "zh_TW.UTF-8"}}, Shipped{"en", "zh-Hans", "zh-Hant"}, "zh-Hant"},
        LanguageCase{"simplifiedStaysSimplified", Env{{"LANG", "zh_CN.UTF-8"}}, Shipped{"en", "zh-Hant", "zh-Hans"},
                     "zh-Hans"},
        LanguageCase{"scriptFormServesRegionalTable", Env{{"LANGUAGE", "zh-Hant"}}, Shipped{"en", "zh_TW", "zh_CN"},
                     "zh_TW"},
        LanguageCase{"baseLanguageTakesItsMainRegion", Env{{"LANGUAGE", "pt"}}, Shipped{"en", "pt-PT", "pt-BR"},
                     "pt-BR"},
        LanguageCase{"baseLanguageNotFirstInOrder", Env{{"LANGUAGE", "es"}}, Shipped{"en", "es-419", "es-ES"}, "es-ES"},
        LanguageCase{"plainZhIsSimplified", Env{{"LANG", "zh_TW.UTF-8"}}, Shipped{"en", "zh", "zh-Hant"}, "zh-Hant"},
        LanguageCase{"anotherRegionBeforeEnglish", Env{{"LANG", "pt_BR.UTF-8"}}, Shipped{"en", "pt-PT"}, "pt-PT"},
        LanguageCase{"secondPreference", Env{{"LANGUAGE", "sv:fr"}}, Shipped{"en", "de", "fr"}, "fr"},
        LanguageCase{"languageListFirst", Env{{"LANGUAGE", "de"}, {"LANG", "fr_FR.UTF-8"}}, Shipped{"en", "fr", "de"},
                     "de"},
        LanguageCase{"localeAfterTheWholeList", Env{{"LANGUAGE", "sv:nb"}, {"LANG", "fr_FR.UTF-8"}},
                     Shipped{"en", "fr", "de"}, "fr"},
        LanguageCase{"lcAllBeforeLang", Env{{"LC_ALL", "de_DE.UTF-8"}, {"LANG", "fr_FR.UTF-8"}},
                     Shipped{"en", "fr", "de"}, "de"},
        LanguageCase{"lcMessagesBeforeLang", Env{{"LC_MESSAGES", "es_ES.UTF-8"}, {"LANG", "fr_FR.UTF-8"}},
                     Shipped{"en", "fr", "es"}, "es"},
        LanguageCase{"developmentLanguageLast", Env{{"LANGUAGE", "ja:ko"}}, Shipped{"de", "en", "fr"}, "en"},
        LanguageCase{"posixLocaleIsEnglish", Env{{"LANG", "C.UTF-8"}}, Shipped{"fr", "en"}, "en"},
        LanguageCase{"baseWhenNoEnglish", Env{{"LANGUAGE", "ja"}}, Shipped{"Base", "fr"}, "Base"},
        LanguageCase{"caseAndSeparatorsIgnored", Env{{"LANGUAGE", "PT-br"}}, Shipped{"en", "pt_BR"}, "pt_BR"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
