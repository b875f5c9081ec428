#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include "base/VrAtomicFile.h"
#include "support/Examples.h"
#include "support/TempDir.h"

namespace {

size_t entries(const std::string& folder) {
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
  return count;
}

}  // namespace

// The save replaces the old file whole and leaves no temporary behind, whether the target names
// its folder or lies in the working folder (where the rename is synced through ".").
TEST(VrAtomicFile, CommitReplacesTheOldFileAndLeavesNoTemporary) {
  const vrtest::TempDir dir;
  const std::string previous = std::filesystem::current_path().string();
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  for (const std::string& target : {dir.file("out.txt"), std::string("bare.txt")}) {
    SCOPED_TRACE(target);
    std::ofstream(target) << "old contents";
    VrAtomicFile file(target);
    ASSERT_TRUE(file.ok());
    file.out() << "new";
    EXPECT_EQ(vrtest::readText(target), "old contents");
    EXPECT_TRUE(file.commit());
    EXPECT_EQ(vrtest::readText(target), "new");
  }
  EXPECT_EQ(entries(dir.path()), 2u);
  ASSERT_EQ(chdir(previous.c_str()), 0);

  // A save that is never committed keeps the old file and removes its temporary.
  {
    VrAtomicFile abandoned(dir.file("out.txt"));
    abandoned.out() << "lost";
  }
  EXPECT_EQ(vrtest::readText(dir.file("out.txt")), "new");
  EXPECT_EQ(entries(dir.path()), 2u);
  // Handing a large save to the disk on the way changes nothing of what is committed or dropped.
  const std::string block(1 << 20, 'x');
  for (bool keep : {false, true}) {
    VrAtomicFile big(dir.file("out.txt"));
    for (int i = 0; i < 12; ++i) {
      big.write(block.data(), block.size());
      big.writeBehind();
    }
    EXPECT_EQ(vrtest::readText(dir.file("out.txt")), "new");
    if (keep) {
      EXPECT_TRUE(big.commit());
    }
  }
  EXPECT_EQ(std::filesystem::file_size(dir.file("out.txt")), 12u << 20);
  EXPECT_EQ(entries(dir.path()), 2u);
  // A folder that does not exist: nothing opens, nothing commits.
  VrAtomicFile missing(dir.file("no/such/folder.txt"));
  EXPECT_FALSE(missing.ok());
  EXPECT_FALSE(missing.commit());
}

// A copy from another file lands between what was written before and after it, whole, however
// many pieces the copy takes (it is handed to the disk a few megabytes at a time).
TEST(VrAtomicFile, AppendFromCopiesTheRangeInPlace) {
  const vrtest::TempDir dir;
  std::string source((9 << 20) + 12345, '\0');
  for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<char>(i * 7 % 251);
  std::ofstream(dir.file("source.bin"), std::ios::binary) << source;
  const int fd = ::open(dir.file("source.bin").c_str(), O_RDONLY);
  ASSERT_GE(fd, 0);
  const uint64_t offset = 1000;
  {
    VrAtomicFile file(dir.file("out.bin"));
    ASSERT_TRUE(file.write("head", 4));
    ASSERT_TRUE(file.appendFrom(fd, offset, source.size() - offset));
    ASSERT_TRUE(file.write("tail", 4));
    ASSERT_TRUE(file.commit());
  }
  ::close(fd);
  EXPECT_TRUE(vrtest::readText(dir.file("out.bin")) == "head" + source.substr(offset) + "tail");
}
