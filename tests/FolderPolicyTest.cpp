#include <sys/file.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "files/ContainedRemover.h"
#include "files/FolderPolicy.h"
#include "files/UploadsFolder.h"
#include "session/ScenarioRunner.h"
#include "tests/TestDirectory.h"

namespace velqor {
namespace {

namespace fs = std::filesystem;
using testing::TestDirectory;

// A scratch tree: a folder of someone's files, a folder this tool made, links
// to both and to system folders.
class FolderTree : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_.write("project/main.cpp", "int main() {}");
    dir_.write("project/notes.txt", "keep");
    fs::create_directories(dir_.path("empty"));
    dir_.write("oldtmp/velqor_photo_20240101000000.jpg", "old result");
    ASSERT_TRUE(FolderPolicy::temporaryFolder(dir_.path("made"), owned_, false).ok());
    dir_.write("made/someone-added.txt", "x");
    fs::create_symlink(dir_.path("project"), dir_.path("link-to-project"));
    fs::create_symlink("/usr", dir_.path("link-to-usr"));
    fs::create_symlink("/", dir_.path("link-to-root"));
    fs::create_symlink(dir_.path("made"), dir_.path("link-to-made"));
  }
  void TearDown() override {
    std::error_code ec;
    fs::remove_all("/var/tmp/velqor-policy-test", ec);
  }
  std::string at(const std::string& name) const { return name.front() == '/' ? name : dir_.path(name); }

  TestDirectory dir_;
  FolderOwnership owned_{dir_.path("state/created-folders")};
};

struct TemporaryCase {
  const char* name;
  std::string requested;  // relative to the scratch tree unless absolute
  bool force;
  const char* refusal;  // part of the message; nullptr: accepted
};
void PrintTo(const TemporaryCase& c, std::ostream* os) { *os << c.name; }

class TemporaryFolderChoice : public FolderTree, public ::testing::WithParamInterface<TemporaryCase> {};

TEST_P(TemporaryFolderChoice, AcceptsOnlyFoldersThatAreSafeToEmpty) {
  const auto& c = GetParam();
  const auto before = TestDirectory::read(dir_.path("project/notes.txt"));
  auto chosen = FolderPolicy::temporaryFolder(at(c.requested), owned_, c.force);
  if (c.refusal) {
    ASSERT_FALSE(chosen.ok()) << chosen->path;
    EXPECT_NE(chosen.status().message().find(c.refusal), std::string::npos) << chosen.status().message();
  } else {
    ASSERT_TRUE(chosen.ok()) << chosen.status().message();
    EXPECT_TRUE(fs::is_directory(chosen->path));
  }
  EXPECT_EQ(TestDirectory::read(dir_.path("project/notes.txt")), before);
}

INSTANTIATE_TEST_SUITE_P(
    Folders, TemporaryFolderChoice,
    ::testing::Values(TemporaryCase{"NewFolder", "new/tmp", false, nullptr},
                      TemporaryCase{"EmptyFolder", "empty", false, nullptr},
                      TemporaryCase{"FolderThisToolMade", "made", false, nullptr},
                      TemporaryCase{"FolderOfOldResults", "oldtmp", false, nullptr},
                      TemporaryCase{"FolderOfSomeonesFiles", "project", false, "did not write"},
                      TemporaryCase{"ThatFolderWithForce", "project", true, nullptr},
                      TemporaryCase{"LinkToSomeonesFiles", "link-to-project", false, "did not write"},
                      TemporaryCase{"DotDotBackIntoIt", "empty/../project", false, "did not write"},
                      TemporaryCase{"Root", "/", true, "shared system folder"},
                      TemporaryCase{"LinkToRoot", "link-to-root", true, "shared system folder"},
                      TemporaryCase{"SharedTmp", "/tmp", true, "shared system folder"},
                      TemporaryCase{"SystemTree", "/usr/local", true, "system tree /usr"},
                      TemporaryCase{"DeepInASystemTree", "/var/lib/velqor", true, "system tree /var"},
                      TemporaryCase{"LinkIntoASystemTree", "link-to-usr/share", true, "system tree /usr"},
                      TemporaryCase{"ScratchBelowVarTmp", "/var/tmp/velqor-policy-test", false, nullptr},
                      TemporaryCase{"HoldsTheRecord", "state", true, "record of the folders"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(FolderTree, HomeAndWhatHoldsItAreRefused) {
  const char* saved = std::getenv("HOME");
  const std::string home = saved ? saved : "";
  ::setenv("HOME", dir_.path("home/alice").c_str(), 1);
  fs::create_directories(dir_.path("home/alice"));
  EXPECT_FALSE(FolderPolicy::temporaryFolder(dir_.path("home/alice"), owned_, true).ok());
  EXPECT_FALSE(FolderPolicy::temporaryFolder(dir_.path("home"), owned_, true).ok());
  EXPECT_TRUE(FolderPolicy::temporaryFolder(dir_.path("home/alice/.local/state/tmp"), owned_, false).ok());
  ::setenv("HOME", home.c_str(), 1);
}

struct LibraryCase {
  const char* name;
  std::string temporary, library;
  const char* refusal;
};
void PrintTo(const LibraryCase& c, std::ostream* os) { *os << c.name; }

class LibraryFolderChoice : public FolderTree, public ::testing::WithParamInterface<LibraryCase> {};

TEST_P(LibraryFolderChoice, KeepsTheLibraryAndTheTemporaryFolderApart) {
  const auto& c = GetParam();
  auto tmp = FolderPolicy::temporaryFolder(at(c.temporary), owned_, false);
  ASSERT_TRUE(tmp.ok()) << tmp.status().message();
  auto library = FolderPolicy::libraryFolder(at(c.library), *tmp, owned_, false);
  if (c.refusal) {
    ASSERT_FALSE(library.ok());
    EXPECT_NE(library.status().message().find(c.refusal), std::string::npos) << library.status().message();
  } else {
    EXPECT_TRUE(library.ok()) << library.status().message();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, LibraryFolderChoice,
    ::testing::Values(LibraryCase{"SideBySide", "t", "lib", nullptr},
                      LibraryCase{"LibraryInsideTemporary", "t", "t/lib", "must not lie in the temporary folder"},
                      LibraryCase{"LibraryIsTemporary", "t", "t", "must not lie in the temporary folder"},
                      LibraryCase{"TemporaryInsideLibrary", "lib/t", "lib", "must not hold the temporary folder"},
                      LibraryCase{"LibraryThroughALinkIntoTemporary", "made", "link-to-made/lib",
                                  "must not lie in the temporary folder"},
                      LibraryCase{"LibraryInSomeonesFolder", "t", "project", "did not write"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(FolderTree, AnExistingLibraryIsAccepted) {
  dir_.write("lib/library.sqlite", "");
  dir_.write("lib/assets/a.jpg", "x");
  auto tmp = FolderPolicy::temporaryFolder(dir_.path("t"), owned_, false);
  ASSERT_TRUE(tmp.ok());
  EXPECT_TRUE(FolderPolicy::libraryFolder(dir_.path("lib"), *tmp, owned_, false).ok());
}

// ---- removal stays strictly inside its folder ------------------------------

struct RemovalCase {
  const char* name;
  std::string target;  // relative to the scratch tree
  bool removes;
};
void PrintTo(const RemovalCase& c, std::ostream* os) { *os << c.name; }

class RemovalInside : public FolderTree, public ::testing::WithParamInterface<RemovalCase> {};

TEST_P(RemovalInside, NeverReachesOutsideTheFolder) {
  const auto& c = GetParam();
  dir_.write("box/inner/file", "x");
  fs::create_symlink(dir_.path("project"), dir_.path("box/link-out"));
  const ResolvedFolder box{FolderPolicy::resolve(dir_.path("box")).string()};
  const Status removed = FolderPolicy::removeInside(box, dir_.path(c.target));
  EXPECT_EQ(removed.ok(), c.removes) << removed.message();
  EXPECT_EQ(TestDirectory::read(dir_.path("project/notes.txt")), "keep");
  EXPECT_TRUE(fs::exists(dir_.path("box")));
}

INSTANTIATE_TEST_SUITE_P(Targets, RemovalInside,
                         ::testing::Values(RemovalCase{"FolderInside", "box/inner", true},
                                           RemovalCase{"LinkInsideRemovedAsALink", "box/link-out", true},
                                           RemovalCase{"ThroughTheLink", "box/link-out/notes.txt", false},
                                           RemovalCase{"TheFolderItself", "box", false},
                                           RemovalCase{"DotDotOut", "box/../project", false},
                                           RemovalCase{"Sibling", "project", false}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- scenario run folders ---------------------------------------------------

struct RunCase {
  const char* name;
  std::string file;  // the scenario file's name
  const char* refusal;
};
void PrintTo(const RunCase& c, std::ostream* os) { *os << c.name; }

class ScenarioRunFolder : public FolderTree, public ::testing::WithParamInterface<RunCase> {};

TEST_P(ScenarioRunFolder, StaysInsideTheWorkFolder) {
  const auto& c = GetParam();
  dir_.write("W/keep.txt", "keep");
  dir_.write("W/runs/other/result.txt", "keep");
  dir_.write("scenarios/" + c.file, R"({"name": "x", "steps": []})");
  auto result = ScenarioRunner::run(dir_.path("scenarios/" + c.file), dir_.path("W/runs"));
  if (c.refusal) {
    ASSERT_FALSE(result.ok());
    EXPECT_NE(result.status().message().find(c.refusal), std::string::npos) << result.status().message();
  } else {
    EXPECT_TRUE(result.ok()) << result.status().message();
  }
  EXPECT_EQ(TestDirectory::read(dir_.path("W/keep.txt")), "keep");
  EXPECT_EQ(TestDirectory::read(dir_.path("W/runs/other/result.txt")), "keep");
}

INSTANTIATE_TEST_SUITE_P(Files, ScenarioRunFolder,
                         ::testing::Values(RunCase{"PlainName", "capture.json", nullptr},
                                           RunCase{"DotDotStem", "..json", "cannot name a run folder"},
                                           RunCase{"DotStem", "..json.json", "cannot name a run folder"},
                                           RunCase{"HiddenStem", ".hidden.json", "cannot name a run folder"},
                                           RunCase{"ExistingForeignRun", "other.json", "did not write"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(FolderTree, ARunFolderTheRunnerMadeIsEmptiedOnTheNextRun) {
  dir_.write("scenarios/again.json", R"({"name": "again", "steps": []})");
  ASSERT_TRUE(ScenarioRunner::run(dir_.path("scenarios/again.json"), dir_.path("W")).ok());
  dir_.write("W/again/leftover", "x");
  ASSERT_TRUE(ScenarioRunner::run(dir_.path("scenarios/again.json"), dir_.path("W")).ok());
  EXPECT_FALSE(fs::exists(dir_.path("W/again/leftover")));
}

// ---- the web host's uploads -------------------------------------------------

TEST_F(FolderTree, StaleUploadFoldersAreSweptAndLiveOnesKept) {
  dir_.write("scratch/velqor-serve-dead01/upload-1", "left by a crash");
  dir_.write("scratch/velqor-serve-live01/upload-2", "in use");
  dir_.write("scratch/unrelated/file", "keep");
  const int live = ::open(dir_.path("scratch/velqor-serve-live01").c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(::flock(live, LOCK_EX | LOCK_NB), 0);
  {
    auto folder = UploadsFolder::create(dir_.path("scratch"));
    ASSERT_TRUE(folder.ok()) << folder.status().message();
    EXPECT_FALSE(fs::exists(dir_.path("scratch/velqor-serve-dead01")));
    EXPECT_TRUE(fs::exists(dir_.path("scratch/velqor-serve-live01/upload-2")));
    EXPECT_TRUE(fs::exists(dir_.path("scratch/unrelated/file")));
    EXPECT_TRUE(fs::is_directory((*folder)->path()));
    dir_.write("scratch/" + fs::path((*folder)->path()).filename().string() + "/upload-3", "x");
  }
  ::close(live);
  size_t serveFolders = 0;
  for (const auto& e : fs::directory_iterator(dir_.path("scratch")))
    serveFolders += e.path().filename().string().rfind("velqor-serve-", 0) == 0;
  EXPECT_EQ(serveFolders, 1u) << "the folder of the server that went is removed with it";
}

// ---- each refusal at its edge, every other check satisfied ----------------

struct EdgeCase {
  const char* name;
  std::vector<std::string> entries;  // files made inside the requested folder first ("x/" makes a folder)
  bool force;
  const char* refusal;  // nullptr: accepted
};
void PrintTo(const EdgeCase& c, std::ostream* os) { *os << c.name; }
class TemporaryFolderEdge : public FolderTree, public ::testing::WithParamInterface<EdgeCase> {};

TEST_P(TemporaryFolderEdge, RefusesFromTheFirstForeignEntry) {
  const auto& c = GetParam();
  fs::create_directories(dir_.path("edge"));
  for (const auto& e : c.entries) {
    if (e.back() == '/') fs::create_directories(dir_.path("edge/" + e));
    else if (e.rfind("link:", 0) == 0) fs::create_symlink(dir_.path("project"), dir_.path("edge/" + e.substr(5)));
    else dir_.write("edge/" + e, "x");
  }
  auto chosen = FolderPolicy::temporaryFolder(dir_.path("edge"), owned_, c.force);
  if (c.refusal) {
    ASSERT_FALSE(chosen.ok());
    EXPECT_THAT(chosen.status().message(), ::testing::HasSubstr(c.refusal));
  } else {
    EXPECT_TRUE(chosen.ok()) << chosen.status().message();
  }
  EXPECT_EQ(TestDirectory::read(dir_.path("project/notes.txt")), "keep");
}

INSTANTIATE_TEST_SUITE_P(
    Entries, TemporaryFolderEdge,
    ::testing::Values(EdgeCase{"NoEntry", {}, false, nullptr},
                      EdgeCase{"ExactlyOneForeignFile", {"a.txt"}, false, "holds 1 entries"},
                      EdgeCase{"ExactlyOneEmptySubfolder", {"sub/"}, false, "holds 1 entries"},
                      EdgeCase{"ExactlyOneLink", {"link:out"}, false, "holds 1 entries"},
                      EdgeCase{"OnlyOurResults", {"velqor_photo_1.jpg", ".velqor-staging-2"}, false, nullptr},
                      EdgeCase{"OurPrefixNotAtTheStart", {"old-velqor_photo_1.jpg"}, false, "holds 1 entries"},
                      EdgeCase{"OneForeignAmongOurs", {"velqor_photo_1.jpg", "b.txt"}, false, "(\"b.txt\""},
                      EdgeCase{"ForeignWithForce", {"a.txt"}, true, nullptr}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(FolderTree, EachFolderCheckRefusesOnItsOwn) {
  // Not a folder: a plain file, with nothing else against it.
  dir_.write("plain-file", "x");
  auto file = FolderPolicy::temporaryFolder(dir_.path("plain-file"), owned_, true);
  ASSERT_FALSE(file.ok());
  EXPECT_THAT(file.status().message(), ::testing::HasSubstr("it is not a folder"));
  // The record one level down, even with --force and an otherwise empty folder.
  FolderOwnership deep{dir_.path("holder/state/created-folders")};
  ASSERT_TRUE(deep.record(dir_.root()).ok());
  auto holder = FolderPolicy::temporaryFolder(dir_.path("holder"), deep, true);
  ASSERT_FALSE(holder.ok());
  EXPECT_THAT(holder.status().message(), ::testing::HasSubstr("record of the folders"));
  // A sibling whose name starts like the record's folder holds nothing of it.
  EXPECT_TRUE(FolderPolicy::temporaryFolder(dir_.path("holder/stat"), deep, false).ok());
  EXPECT_TRUE(FolderPolicy::temporaryFolder(dir_.path("holder/state-2"), deep, false).ok());
  // Shared folders: the scratch folder itself refused, a folder below it accepted.
  EXPECT_FALSE(FolderPolicy::refuseShared("/var/tmp").ok());
  EXPECT_TRUE(FolderPolicy::refuseShared("/var/tmp/velqor-policy-test").ok());
  // A system tree holds what lies below it, not what merely starts with its name.
  EXPECT_FALSE(FolderPolicy::refuseShared("/var/velqor").ok());
  EXPECT_TRUE(FolderPolicy::refuseShared("/variable/velqor").ok());
  EXPECT_THAT(FolderPolicy::refuseShared(std::string_view("a\0b", 3)).message(), ::testing::HasSubstr("NUL"));
  EXPECT_THAT(FolderPolicy::temporaryFolder("", owned_, true).status().message(), ::testing::HasSubstr("empty"));
}

TEST_F(FolderTree, ALinkNamedLikeAnIndexMakesNoFolderALibrary) {
  dir_.write("outside.sqlite", "");
  dir_.write("someone/notes.txt", "keep");
  fs::create_symlink(dir_.path("outside.sqlite"), dir_.path("someone/library.sqlite"));
  auto tmp = FolderPolicy::temporaryFolder(dir_.path("t"), owned_, false);
  ASSERT_TRUE(tmp.ok());
  auto linked = FolderPolicy::libraryFolder(dir_.path("someone"), *tmp, owned_, false);
  ASSERT_FALSE(linked.ok());
  EXPECT_THAT(linked.status().message(), ::testing::HasSubstr("did not write"));
  // The same folder with a real index is a library.
  fs::remove(dir_.path("someone/library.sqlite"));
  dir_.write("someone/library.sqlite", "");
  EXPECT_TRUE(FolderPolicy::libraryFolder(dir_.path("someone"), *tmp, owned_, false).ok());
}

TEST_F(FolderTree, ALibraryBesideTheTemporaryFolderMayShareItsNamesStart) {
  auto tmp = FolderPolicy::temporaryFolder(dir_.path("t"), owned_, false);
  ASSERT_TRUE(tmp.ok());
  EXPECT_TRUE(FolderPolicy::libraryFolder(dir_.path("t2"), *tmp, owned_, false).ok());
  auto longer = FolderPolicy::temporaryFolder(dir_.path("lib-tmp"), owned_, false);
  ASSERT_TRUE(longer.ok());
  EXPECT_TRUE(FolderPolicy::libraryFolder(dir_.path("lib"), *longer, owned_, false).ok());
  EXPECT_FALSE(FolderPolicy::libraryFolder("", *tmp, owned_, false).ok());
}

struct RunNameCase {
  const char* name;
  std::string runName;
  const char* refusal;
};
void PrintTo(const RunNameCase& c, std::ostream* os) { *os << c.name; }
class RunFolderName : public FolderTree, public ::testing::WithParamInterface<RunNameCase> {};

TEST_P(RunFolderName, TakesOnlyPlainNamesUpToTheLimit) {
  const auto& c = GetParam();
  auto work = FolderPolicy::workFolder(dir_.path("W"));
  ASSERT_TRUE(work.ok());
  auto run = FolderPolicy::runFolder(*work, c.runName, owned_, false);
  if (c.refusal) {
    ASSERT_FALSE(run.ok());
    EXPECT_THAT(run.status().message(), ::testing::HasSubstr(c.refusal));
  } else {
    ASSERT_TRUE(run.ok()) << run.status().message();
    EXPECT_TRUE(fs::is_directory(dir_.path("W/" + c.runName)));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Names, RunFolderName,
    ::testing::Values(RunNameCase{"OneCharacter", "a", nullptr},
                      RunNameCase{"ExactlyTheLimit", std::string(128, 'r'), nullptr},
                      RunNameCase{"OnePastTheLimit", std::string(129, 'r'), "cannot name a run folder"},
                      RunNameCase{"Empty", "", "cannot name a run folder"},
                      RunNameCase{"Dot", ".", "cannot name a run folder"},
                      RunNameCase{"DotDot", "..", "cannot name a run folder"},
                      RunNameCase{"LeadingDot", ".a", "cannot name a run folder"},
                      RunNameCase{"DotInside", "a.b", nullptr},
                      RunNameCase{"Separator", "a/b", "cannot name a run folder"},
                      RunNameCase{"Space", "a b", "cannot name a run folder"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(FolderTree, AnExistingRunFolderIsEmptiedOnlyWhenItIsOursOrEmpty) {
  auto work = FolderPolicy::workFolder(dir_.path("W"));
  ASSERT_TRUE(work.ok());
  // A link named like the run, to an empty folder beside it (so it does lie
  // inside the work folder): refused as a link, not removed.
  fs::create_directories(dir_.path("W/beside"));
  fs::create_symlink(dir_.path("W/beside"), dir_.path("W/linked"));
  auto linked = FolderPolicy::runFolder(*work, "linked", owned_, false);
  ASSERT_FALSE(linked.ok());
  EXPECT_THAT(linked.status().message(), ::testing::HasSubstr("it is a link"));
  EXPECT_TRUE(fs::is_symlink(dir_.path("W/linked")));
  // One pointing out of the work folder is refused before that.
  fs::create_directories(dir_.path("elsewhere"));
  fs::create_symlink(dir_.path("elsewhere"), dir_.path("W/out"));
  EXPECT_FALSE(FolderPolicy::runFolder(*work, "out", owned_, false).ok());
  EXPECT_TRUE(fs::is_symlink(dir_.path("W/out")));
  // Exactly one foreign entry refuses; none is accepted.
  dir_.write("W/one/only.txt", "keep");
  auto one = FolderPolicy::runFolder(*work, "one", owned_, false);
  ASSERT_FALSE(one.ok());
  EXPECT_THAT(one.status().message(), ::testing::HasSubstr("\"only.txt\""));
  EXPECT_EQ(TestDirectory::read(dir_.path("W/one/only.txt")), "keep");
  fs::create_directories(dir_.path("W/none"));
  EXPECT_TRUE(FolderPolicy::runFolder(*work, "none", owned_, false).ok());
}

TEST_F(FolderTree, StrictlyInsideMeansBelowAndNeverTheRootFolder) {
  const ResolvedFolder box{FolderPolicy::resolve(dir_.path("project")).string()};
  EXPECT_TRUE(FolderPolicy::strictlyInside(box, dir_.path("project/notes.txt")));
  EXPECT_FALSE(FolderPolicy::strictlyInside(box, dir_.path("project")));
  EXPECT_FALSE(FolderPolicy::strictlyInside(box, dir_.path("project2/x")));
  EXPECT_FALSE(FolderPolicy::strictlyInside(ResolvedFolder{"/"}, "/etc"));
  EXPECT_FALSE(FolderPolicy::strictlyInside(ResolvedFolder{""}, "/etc"));
}

// ---- the contained remover on its own, without the policy in front ---------

struct RemoverCase {
  const char* name;
  std::string relative;  // below box/
  bool removes;
  const char* gone;      // what must have gone (below box/), or nullptr
};
void PrintTo(const RemoverCase& c, std::ostream* os) { *os << c.name; }
class ContainedRemoval : public FolderTree, public ::testing::WithParamInterface<RemoverCase> {};

TEST_P(ContainedRemoval, NeverFollowsALinkAtAnyDepth) {
  const auto& c = GetParam();
  dir_.write("box/tree/file", "x");
  dir_.write("box/tree/deeper/file", "x");
  fs::create_symlink(dir_.path("project"), dir_.path("box/tree/link-one-down"));
  fs::create_symlink(dir_.path("project"), dir_.path("box/tree/deeper/link-two-down"));
  fs::create_symlink(dir_.path("project/notes.txt"), dir_.path("box/tree/deeper/file-link"));
  fs::create_symlink(dir_.path("project"), dir_.path("box/link-out"));
  const int err = ContainedRemover::remove(dir_.path("box"), c.relative);
  if (c.removes) {
    EXPECT_EQ(err, 0) << std::strerror(err);
  } else {
    EXPECT_NE(err, 0);
  }
  if (c.gone) {
    std::error_code ec;
    EXPECT_FALSE(fs::exists(fs::symlink_status(dir_.path(std::string("box/") + c.gone), ec)));
  }
  EXPECT_EQ(TestDirectory::read(dir_.path("project/notes.txt")), "keep");
  EXPECT_EQ(TestDirectory::read(dir_.path("project/main.cpp")), "int main() {}");
  EXPECT_TRUE(fs::is_directory(dir_.path("box")));
}

INSTANTIATE_TEST_SUITE_P(
    Paths, ContainedRemoval,
    ::testing::Values(RemoverCase{"TreeWithLinksOneAndTwoLevelsDown", "tree", true, "tree"},
                      RemoverCase{"LinkAtTheTopRemovedAsALink", "link-out", true, "link-out"},
                      RemoverCase{"LinkDeepRemovedAsALink", "tree/deeper/file-link", true, "tree/deeper/file-link"},
                      RemoverCase{"ThroughALinkInTheMiddle", "link-out/notes.txt", false, nullptr},
                      RemoverCase{"ThroughALinkOneLevelDown", "tree/link-one-down/notes.txt", false, nullptr},
                      RemoverCase{"UpAndOut", "../project/notes.txt", false, nullptr},
                      RemoverCase{"DownThenUp", "tree/../../project/notes.txt", false, nullptr},
                      RemoverCase{"Nothing", "", false, nullptr},
                      RemoverCase{"OnlyDots", "././/", false, nullptr},
                      RemoverCase{"Missing", "tree/none", false, nullptr}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
