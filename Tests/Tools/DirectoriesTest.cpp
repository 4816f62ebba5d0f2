#include <Tests/Tools/WfsProgram.h>

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using ::testing::HasSubstr;
using TestSupport::Call;
using TestSupport::Child;
using TestSupport::ProgramResult;
using TestSupport::Recorder;

constexpr int SUCCESS = 0;
constexpr int FAILURE = 1;
constexpr int WRONG_USAGE = 2;

class DirectoriesTest : public WfsTest {
protected:
    void MakeDirectory(std::string const& name) const { ASSERT_EQ(::mkdir((scratch_ / name).c_str(), 0755), 0); }

    std::vector<std::string> List(std::string const& name = ".") const { return TestSupport::List(scratch_ / name); }

    void ExpectFailure(Arguments const& arguments, std::string const& errors) const {
        ProgramResult const result = Run(arguments);
        EXPECT_EQ(result.errors, errors);
        EXPECT_EQ(result.status, FAILURE);
    }
};

using Names = std::vector<std::string>;

// list

TEST_F(DirectoriesTest, ListPrintsTheMatchesSorted) {
    for (char const* const name : {"b", "a", ".hidden", "\u00E4", "c.txt"}) {
        Write(name, "");
    }
    ProgramResult const result = Run({"list", "*"});
    EXPECT_EQ(result.output, "a\nb\nc.txt\n\u00E4\n");
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(DirectoriesTest, ListTakesSeveralPatternsInTheirOrder) {
    Write("a", "");
    Write("b", "");
    EXPECT_EQ(Run({"list", "[b]", "?", "missing*"}).output, "b\na\nb\n");
}

TEST_F(DirectoriesTest, ListOfNothingIsASuccess) {
    ProgramResult const result = Run({"list", "missing/*"});
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(DirectoriesTest, ListPrintsJson) {
    for (char const* const name : {"a\nb", "\u00E4", "c"}) {
        Write(name, "");
    }
    EXPECT_EQ(Run({"list", "--json", "[!c]*", "missing", "c"}).output, "[\n  \"a\\nb\",\n  \"\u00E4\",\n  \"c\"\n]\n");
    EXPECT_EQ(Run({"list", "--json", "missing"}).output, "[]\n");
}

// mkdir

TEST_F(DirectoriesTest, MkdirCreatesEachDirectory) {
    ProgramResult const result = Run({"mkdir", "a", "a/b"});
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
    EXPECT_EQ(List("a"), Names{"b"});
}

TEST_F(DirectoriesTest, MkdirWithParentsCreatesThemToo) {
    EXPECT_EQ(Run({"mkdir", "--parents", "a/b/c"}).status, SUCCESS);
    EXPECT_EQ(List("a/b"), Names{"c"});
}

TEST_F(DirectoriesTest, MkdirWithoutParentsFailsWhereOneIsMissing) {
    ExpectFailure({"mkdir", "a/b", "c"}, "wfs: Failed to create directory 'a/b'.\nNo such file or directory\n");
    EXPECT_EQ(List(), Names{"c"});
}

TEST_F(DirectoriesTest, MkdirOfAnExistingDirectoryFailsWithAndWithoutParents) {
    MakeDirectory("a");
    ExpectFailure({"mkdir", "a"}, "wfs: Failed to create directory 'a'.\nFile exists\n");
    ExpectFailure({"mkdir", "--parents", "a"}, "wfs: Failed to create directory 'a'.\nFile exists\n");
}

// rmdir

TEST_F(DirectoriesTest, RmdirDeletesAnEmptyDirectory) {
    MakeDirectory("a");
    ProgramResult const result = Run({"rmdir", "a/"});
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
    EXPECT_EQ(List(), Names{});
}

TEST_F(DirectoriesTest, RmdirOfADirectoryThatIsNotEmptyFails) {
    MakeDirectory("a");
    MakeDirectory("b");
    Write("a/file", "");
    ExpectFailure({"rmdir", "a", "b"}, "wfs: Failed to delete directory 'a'.\nDirectory not empty\n");
    EXPECT_EQ(List(), Names{"a"});
}

TEST_F(DirectoriesTest, RmdirRecursiveDeletesAllThatIsInIt) {
    MakeDirectory("a");
    MakeDirectory("a/b");
    Write("a/b/file", "");
    Write("a/file", "");
    EXPECT_EQ(Run({"rmdir", "--recursive", "a"}).status, SUCCESS);
    EXPECT_EQ(List(), Names{});
}

TEST_F(DirectoriesTest, RmdirRecursiveReportsEachFailureOnItsOwn) {
    MakeDirectory("a");
    MakeDirectory("a/b");
    Write("a/b/.hidden", "");
    Write("a/.hidden", "");
    ExpectFailure(
        {"rmdir", "--recursive", "a"}, "wfs: Failed to delete directory 'a'.\nDirectory not empty\n"
                                       "wfs: Failed to delete directory 'a/b'.\nDirectory not empty\n");
}

TEST_F(DirectoriesTest, RmdirRefusesWhatTheLibraryWouldTakeForSomethingElse) {
    MakeDirectory("a");
    Write("a/file", "");
    MakeDirectory("[a]");
    MakeDirectory("x\\a");
    ASSERT_EQ(::symlink("a", (scratch_ / "link").c_str()), 0);
    Names const before = List();
    for (char const* const path :
         {"", ".", "./", "a/..", "..", "../..", "/", "//", "/..", "[a]", "*", "?", "x\\a", "link", "link/"}) {
        for (Arguments const& options : std::vector<Arguments>{{"rmdir"}, {"rmdir", "--recursive"}}) {
            Arguments arguments = options;
            arguments.emplace_back(path);
            // Nothing is deleted here even if nothing is refused: the paths lead out of the scratch directory.
            ProgramResult const result = RunObserved(arguments, [](Recorder& recorder, Child::Parent&) {
                for (char const* const function : {"unlink", "rmdir"}) {
                    recorder.On(function).Optional().Instead([](Call const& call) {
                        ADD_FAILURE() << call.function << " " << call.path;
                        return 0L;
                    });
                }
            });
            EXPECT_THAT(result.errors, HasSubstr(std::string("wfs: '") + path + "': Refused, because it "));
            EXPECT_EQ(result.status, FAILURE);
        }
    }
    EXPECT_EQ(List(), before);
    EXPECT_EQ(List("a"), Names{"file"});
}

TEST_F(DirectoriesTest, AMissingPathIsWrongUsage) {
    for (char const* const verb : {"list", "mkdir", "rmdir"}) {
        EXPECT_EQ(Run({verb}).status, WRONG_USAGE) << verb;
    }
}

} // namespace
