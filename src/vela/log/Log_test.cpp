#include "vela/log/Log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include "support/ChildProcess.h"

namespace Log = Halden::Log;

namespace {

using vela_test::ChildResult;
using vela_test::Environment;
using vela_test::readFile;
using vela_test::runChild;
using vela_test::TemporaryFolder;

// The log's own variables removed, then those given set.
Environment only(Environment environment) {
  for (const char* name : {"HALDEN_LOG_FILE", "HALDEN_LOG_LEVEL", "TEMP"})
    environment.emplace(name, std::nullopt);
  return environment;
}

ChildResult logChild(std::vector<std::string> arguments, const Environment& environment = {},
                     const std::string& folder = {}) {
  arguments.insert(arguments.begin(), VELA_LOG_CHILD);
  return runChild(arguments, only(environment), folder);
}

// What the actions leave in a log file.
std::string logged(const std::vector<std::string>& actions, Environment environment = {}) {
  const TemporaryFolder folder;
  environment["HALDEN_LOG_FILE"] = folder.file("test.log");
  const ChildResult child = logChild(actions, environment);
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_EQ(child.err, "");
  return readFile(folder.file("test.log"));
}

// The text with every time stamp of the stated form made "[stamp]".
std::string withoutStamps(const std::string& text) {
  static const std::regex stamp(R"(\[\d{4}/\d\d/\d\d:\d\d:\d\d:\d\d\])");
  return std::regex_replace(text, stamp, "[stamp]");
}

// ---- Levels

TEST(LogLevel, TextsNameTheirLevels) {
  EXPECT_EQ(Log::parseLevel("quiet"), 0u);
  EXPECT_EQ(Log::parseLevel("error"), 1u);
  EXPECT_EQ(Log::parseLevel("warning"), 2u);
  EXPECT_EQ(Log::parseLevel("message"), 3u);
  EXPECT_EQ(Log::parseLevel("verbose"), 4u);
  EXPECT_EQ(Log::parseLevel("all"), 4u);
}

TEST(LogLevel, AnyOtherTextIsNoLevel) {
  for (const char* text :
       {"", "3", "Quiet", "ERROR", "warnings", "verbos", " error", "error ", "unset"})
    EXPECT_EQ(Log::parseLevel(text), 5u) << text;
}

TEST(LogLevel, IsNoLevelBeforeTheFirstMessage) { EXPECT_EQ(logChild({"print-level"}).out, "5\n"); }

TEST(LogLevel, WithoutTheVariableErrorsAreWrittenAndWarningsAreNot) {
  EXPECT_EQ(withoutStamps(logged({"write=2:0:a warning", "write=1:0:an error"})),
            "[Error][stamp] an error\n");
  EXPECT_EQ(logged({"write=2:0:a warning"}), "");
  const TemporaryFolder folder;
  EXPECT_EQ(logChild({"write=1:0:x", "print-level"}, {{"HALDEN_LOG_FILE", folder.file("log")}}).out,
            "1\n");
}

TEST(LogLevel, VariableIsReadInAnyCase) {
  for (const char* value : {"VERBOSE", "All", "verbose", "aLL"})
    EXPECT_EQ(withoutStamps(logged({"write=4:0:detail"}, {{"HALDEN_LOG_LEVEL", value}})),
              "[Verbose][stamp] detail\n")
        << value;
  EXPECT_EQ(logged({"write=1:0:an error"}, {{"HALDEN_LOG_LEVEL", "Quiet"}}), "");
  EXPECT_EQ(
      withoutStamps(logged({"write=3:0:a", "write=2:0:b"}, {{"HALDEN_LOG_LEVEL", "Warning"}})),
      "[Warning][stamp] b\n");
}

TEST(LogLevel, VariableThatNamesNoLevelChangesNothing) {
  for (const char* value : {"3", "", "loud"}) {
    EXPECT_EQ(withoutStamps(logged({"write=2:0:w", "write=1:0:e"}, {{"HALDEN_LOG_LEVEL", value}})),
              "[Error][stamp] e\n");
    EXPECT_EQ(logChild({"level=3,env", "print-level"}, {{"HALDEN_LOG_LEVEL", value}}).out, "3\n")
        << value;
  }
}

TEST(LogLevel, SetLevelReadsTheVariableOnlyWhenAsked) {
  EXPECT_EQ(logChild({"level=2", "print-level"}, {{"HALDEN_LOG_LEVEL", "verbose"}}).out, "2\n");
  EXPECT_EQ(logChild({"level=2,env", "print-level"}, {{"HALDEN_LOG_LEVEL", "verbose"}}).out, "4\n");
  EXPECT_EQ(logChild({"level=2,env", "print-level"}).out, "2\n");
}

TEST(LogLevel, SetToFiveMeansNotYetInitialised) {
  EXPECT_EQ(logChild({"level=4", "level=5", "print-level"}).out, "5\n");
  EXPECT_EQ(withoutStamps(logged({"level=4", "level=5", "write=2:0:w", "write=1:0:e"})),
            "[Error][stamp] e\n");
  EXPECT_EQ(withoutStamps(
                logged({"level=0", "level=5", "write=2:0:w"}, {{"HALDEN_LOG_LEVEL", "warning"}})),
            "[Warning][stamp] w\n");
}

TEST(LogLevel, QuietMessagesAreAlwaysWritten) {
  EXPECT_EQ(withoutStamps(logged({"level=0", "write=1:0:e", "write=0:0:q"})), "[Quiet][stamp] q\n");
}

TEST(LogLevel, MessagesOfNoLevelAreFiltered) {
  EXPECT_EQ(logged({"level=100", "write=5:0:a", "write=6:0:b", "write=4294967295:0:c"}), "");
}

TEST(LogLevel, EveryLevelHasItsHeader) {
  EXPECT_EQ(withoutStamps(logged({"level=4", "write=0:0:a", "write=1:0:b", "write=2:0:c",
                                  "write=3:0:d", "write=4:0:e"})),
            "[Quiet][stamp] a\n[Error][stamp] b\n[Warning][stamp] c\n[Message][stamp] "
            "d\n[Verbose][stamp] e\n");
}

// ---- Headers

TEST(LogHeader, HasApplicationNameAndIdentifierAsTheyAreGiven) {
  EXPECT_EQ(withoutStamps(logged({"enable=7:Asset System", "write=1:0:a", "write=1:7:b", "app=nova",
                                  "write=1:0:c", "write=1:7:d", "app=", "write=1:0:e"})),
            "[Error][stamp] a\n[Asset System Error][stamp] b\n[nova Error][stamp] c\n[nova/Asset "
            "System Error][stamp] d\n"
            "[Error][stamp] e\n");
}

TEST(LogHeader, IdentifierThatIsNotEnabledIsFiltered) {
  EXPECT_EQ(logged({"level=4", "write=1:7:a", "replace=7:short", "write=1:7:b"}), "");
  EXPECT_EQ(logChild({"line=1:7:a"}).out, "0\n");
}

TEST(LogHeader, ReplacementLeavesOnlyItsText) {
  EXPECT_EQ(logged({"app=nova", "enable=7:Asset System", "replace=7:assets", "write=1:7:text"}),
            "[assets] text\n");
}

TEST(LogHeader, ReplacedHeaderIsStillFilteredByLevel) {
  EXPECT_EQ(logged({"enable=7:a", "replace=7:assets", "write=2:7:text"}), "");
}

TEST(LogHeader, IdentifierZeroCannotBeRegistered) {
  EXPECT_EQ(withoutStamps(logged({"enable=0:a", "replace=0:b", "write=1:0:text"})),
            "[Error][stamp] text\n");
}

TEST(LogHeader, ChannelOfANameIsMadeOnceAndEnabled) {
  EXPECT_EQ(
      logChild({"channel=one", "channel=two", "channel=one", "enable=9:mine", "channel=mine"}).out,
      "65536\n65537\n65536\n9\n");
  EXPECT_EQ(withoutStamps(logged({"channel=one", "write=1:65536:text"})),
            "[one Error][stamp] text\n");
}

TEST(LogHeader, ReportsWhetherTheLineIsWritten) {
  const TemporaryFolder folder;
  const ChildResult child = logChild({"line=1:0:an error", "line=2:0:a warning"},
                                     {{"HALDEN_LOG_FILE", folder.file("log")}});
  EXPECT_EQ(child.out, "1\n0\n");
  EXPECT_EQ(withoutStamps(readFile(folder.file("log"))), "[Error][stamp] an error\n");
}

TEST(LogHeader, StampIsTheLocalTime) {
  const auto stampOf = [](std::time_t when) {
    char text[64];
    std::strftime(text, sizeof text, "%Y/%m/%d:%H:%M:%S", std::localtime(&when));
    return std::string(text);
  };
  const std::time_t before = std::time(nullptr);
  const std::string text = logged({"write=1:0:x"});
  std::set<std::string> possible;
  for (std::time_t t = before; t <= std::time(nullptr); ++t)
    possible.insert("[Error][" + stampOf(t) + "] x\n");
  EXPECT_THAT(possible, testing::Contains(text));
}

TEST(LogHeader, StampFollowsTheTimeZone) {
  // Fourteen hours ahead and eleven behind are never the same day.
  const auto dayIn = [](const char* zone) {
    return logged({"write=1:0:x"}, {{"TZ", zone}}).substr(8, 10);
  };
  EXPECT_GT(dayIn("AAA-14"), dayIn("BBB11"));
}

// ---- The file

TEST(LogFile, PathIsTheVariablesValue) {
  EXPECT_EQ(logChild({"print-path"}, {{"HALDEN_LOG_FILE", "some/where.log"}, {"TEMP", "/tmp"}}).out,
            "some/where.log\n");
}

TEST(LogFile, PathLiesInTempOtherwise) {
  EXPECT_EQ(logChild({"print-path"}, {{"TEMP", "C:\\Temp"}}).out, "C:\\Temp\\halden.log\n");
  EXPECT_EQ(logChild({"print-path"}, {{"TEMP", ""}}).out, "\\halden.log\n");
}

TEST(LogFile, DefaultPathIsTheSameOnEveryDesktop) {
  // KEEP(log-default-path)
  EXPECT_EQ(logChild({"print-path"}).out, "\\WINDOWS\\Temp\\halden.log\n");
  const TemporaryFolder folder;
  EXPECT_EQ(logChild({"write=1:0:x"}, {}, folder.path()).err, "");
  EXPECT_EQ(withoutStamps(readFile(folder.file("\\WINDOWS\\Temp\\halden.log"))),
            "[Error][stamp] x\n");
}

TEST(LogFile, EmptyPathMeansTheStandardErrorStreamWithNoMessage) {
  const TemporaryFolder folder;
  const ChildResult child =
      logChild({"print-path", "open", "write=1:0:x"}, {{"HALDEN_LOG_FILE", ""}}, folder.path());
  EXPECT_EQ(child.out, "\n");
  EXPECT_EQ(withoutStamps(child.err), "[Error][stamp] x\n");
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(LogFile, IsAppendedTo) {
  const TemporaryFolder folder;
  const Environment environment{{"HALDEN_LOG_FILE", folder.file("log")}};
  logChild({"write=1:0:first"}, environment);
  logChild({"write=1:0:second"}, environment);
  EXPECT_EQ(withoutStamps(readFile(folder.file("log"))),
            "[Error][stamp] first\n[Error][stamp] second\n");
}

TEST(LogFile, IsNotMadeBeforeTheFirstLine) {
  const TemporaryFolder folder;
  logChild({"level=1,env", "print-level", "write=2:0:filtered", "print-path"},
           {{"HALDEN_LOG_FILE", folder.file("log")}});
  EXPECT_FALSE(std::filesystem::exists(folder.file("log")));
}

TEST(LogFile, ThatCannotBeOpenedIsReportedOnceAndLinesGoToTheStandardErrorStream) {
  const ChildResult child =
      logChild({"write=1:0:a", "write=1:0:b"}, {{"HALDEN_LOG_FILE", "/no/such/folder/x.log"}});
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_EQ(withoutStamps(child.err),
            "Halden::Log Error cannot open /no/such/folder/x.log for writing \n[Error][stamp] "
            "a\n[Error][stamp] b\n");
}

TEST(LogFile, LongPathThatCannotBeOpenedGetsASecondMessage) {
  const std::string tooLong =
      "Possibly failing because log name is too long. In the Windows API maximum length for a path "
      "is 260 characters "
      "(including null terminating char).\n";
  for (const std::size_t length : {259u, 260u, 300u}) {
    const std::string path = "/" + std::string(length - 1, 'x');
    const ChildResult child = logChild({"write=1:0:a"}, {{"HALDEN_LOG_FILE", path}});
    EXPECT_EQ(withoutStamps(child.err),
              "Halden::Log Error cannot open " + path + " for writing \n" +
                  (length >= 260 ? tooLong : std::string()) + "[Error][stamp] a\n")
        << length;
  }
}

// ---- Threads

TEST(LogThreads, TenThreadsWriteWholeLines) {
  const int threads = 10, lines = 200;
  std::istringstream text(withoutStamps(logged({"threads=10,200"})));
  std::map<int, int> next;
  int count = 0;
  for (std::string line; std::getline(text, line); ++count) {
    int thread = -1, number = -1, read = 0;
    ASSERT_EQ(std::sscanf(line.c_str(), "[Error][stamp] thread %d line %d end%n", &thread, &number,
                          &read),
              2)
        << line;
    ASSERT_EQ(static_cast<std::size_t>(read), line.size()) << line;
    EXPECT_EQ(number, next[thread]++) << "lines of a thread keep their order";
  }
  EXPECT_EQ(count, threads * lines);
  EXPECT_EQ(next.size(), static_cast<std::size_t>(threads));
}

TEST(LogThreads, SeveralProcessesShareTheFileLineByLine) {
  const TemporaryFolder folder;
  const std::string child = std::string("'") + VELA_LOG_CHILD + "' threads=1,200";
  const ChildResult shell =
      runChild({"/bin/sh", "-c", child + " & " + child + " & " + child + " & wait"},
               only({{"HALDEN_LOG_FILE", folder.file("log")}}));
  EXPECT_EQ(shell.exitCode, 0);
  std::istringstream text(withoutStamps(readFile(folder.file("log"))));
  int count = 0;
  for (std::string line; std::getline(text, line); ++count) {
    int number = -1, read = 0;
    ASSERT_EQ(std::sscanf(line.c_str(), "[Error][stamp] thread 0 line %d end%n", &number, &read), 1)
        << line;
    ASSERT_EQ(static_cast<std::size_t>(read), line.size()) << line;
  }
  EXPECT_EQ(count, 600);
}

}  // namespace
