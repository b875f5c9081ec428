// Saves and render outputs killed part way: `vorn` is run in a child process and killed with
// SIGKILL before it writes, and when its temporary file beside the target has reached a
// quarter, a half and three quarters of the finished size. Whatever the moment, the file under
// the final name is the old one, byte for byte; a run that finished first has put the whole new
// file there.

#include "support/Examples.h"
#include "support/RunCommand.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using vrtest::readText;

pid_t spawnVorn(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  std::string program = vrtest::vornCli();
  argv.push_back(program.data());
  std::vector<std::string> copies = args;
  for (std::string& arg : copies) argv.push_back(arg.data());
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    execv(argv[0], argv.data());
    _exit(127);
  }
  return pid;
}

long long sizeOf(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? static_cast<long long>(info.st_size) : -1;
}

struct Outcome {
  bool killed = false;          ///< the child died of the signal, not of its own accord
  bool killedWhileWriting = false;  ///< ... with its temporary file present
};

// Runs `vorn args` writing `target` and kills it once its temporary file holds `fraction` of
// `finalSize` bytes; a negative fraction kills it after `delay` instead, before it writes.
Outcome runAndKill(const std::vector<std::string>& args, const std::string& target, double fraction,
                   long long finalSize, std::chrono::milliseconds delay) {
  const pid_t pid = spawnVorn(args);
  const std::string temporary = target + ".tmp" + std::to_string(pid);
  const auto start = std::chrono::steady_clock::now();
  Outcome outcome;
  int status = 0;
  for (;;) {
    if (waitpid(pid, &status, WNOHANG) == pid) return outcome;  // finished before the point
    const long long written = sizeOf(temporary);
    const bool due = fraction < 0 ? std::chrono::steady_clock::now() - start >= delay
                                  : written >= static_cast<long long>(fraction * static_cast<double>(finalSize));
    if (due && (fraction < 0 || written >= 0)) {
      kill(pid, SIGKILL);
      outcome.killedWhileWriting = written >= 0;
      break;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  waitpid(pid, &status, 0);
  outcome.killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  unlink(temporary.c_str());  // a killed process cannot clear up; the name is its own
  return outcome;
}

// Kills `vorn args` at every point in turn, with `target` holding `oldBytes` before each run,
// and checks the file under the final name.
void killAtEveryPoint(const std::vector<std::string>& args, const std::string& target, const std::string& oldBytes,
                      long long finalSize) {
  struct Point {
    double fraction;
    int delayMs;
  };
  const Point points[] = {{-1, 0}, {-1, 20}, {0.0, 0}, {0.25, 0}, {0.5, 0}, {0.75, 0}};
  int whileWriting = 0;
  for (const Point& point : points) {
    SCOPED_TRACE("kill at " + std::to_string(point.fraction) + " of the file, or after " +
                 std::to_string(point.delayMs) + " ms");
    std::ofstream(target, std::ios::binary | std::ios::trunc) << oldBytes;
    const Outcome outcome =
        runAndKill(args, target, point.fraction, finalSize, std::chrono::milliseconds(point.delayMs));
    const std::string now = readText(target);
    if (outcome.killed) {
      EXPECT_EQ(now.size(), oldBytes.size());
      EXPECT_TRUE(now == oldBytes) << "the old file was changed by a killed run";
      whileWriting += outcome.killedWhileWriting;
    } else {
      EXPECT_EQ(static_cast<long long>(now.size()), finalSize) << "a finished run left a partial file";
    }
  }
  // The size-triggered points find the temporary file being written on any machine speed.
  EXPECT_GE(whileWriting, 2);
}

}  // namespace

TEST(AtomicSaveKill, CollectionSaveKilledLeavesTheOldFile) {
  vrtest::TempDir dir;
  // A collection whose file runs to megabytes: a long description attribute.
  std::string text = readText(vrtest::examplePath("head/head.vorn"));
  const std::string groom = "\tgroom\t\t\t\n";
  const size_t at = text.find(groom);
  ASSERT_NE(at, std::string::npos);
  text.replace(at, groom.size(), "\tgroom\t\t\t" + std::string(8 << 20, 'g') + "\n");
  const std::string reference = dir.write("reference.vorn", text);
  const vrtest::CommandResult done = vrtest::vorn("set " + vrtest::shellWord(reference) + " length 0.5 hair SplinePrimitive");
  ASSERT_EQ(done.exitCode, 0) << done.output;
  const long long finalSize = sizeOf(reference);
  ASSERT_GT(finalSize, 8 << 20);

  const std::string target = dir.file("head.vorn");
  killAtEveryPoint({"set", target, "length", "0.5", "hair", "SplinePrimitive"}, target, text,
                   finalSize);
}

TEST(AtomicSaveKill, RenderOutputKilledLeavesTheOldFile) {
  vrtest::TempDir dir;
  const std::string example = std::string(VORN_SOURCE_DIR) + "/examples/head/";
  std::string text = readText(example + "head.vorn");
  const std::string from = "density\t\t\t50000.0";
  const size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos);
  text.replace(at, from.size(), "density\t\t\t8000.0");
  const std::string collection = dir.write("head.vorn", text);
  const std::string geometry = example + "head.abc", reference = dir.file("reference.jsonl");
  const vrtest::CommandResult done =
      vrtest::vorn("render " + vrtest::shellWord(collection) + " --geom " +
                   vrtest::shellWord(geometry) + " --frame 1 -o " + vrtest::shellWord(reference));
  ASSERT_EQ(done.exitCode, 0) << done.output;
  const long long finalSize = sizeOf(reference);
  ASSERT_GT(finalSize, 1 << 19);

  const std::string target = dir.file("hair.jsonl");
  killAtEveryPoint({"render", collection, "--geom", geometry, "--frame", "1", "-o", target}, target,
                   "{\"an\": \"older render\"}\n", finalSize);
}
