// Replays the inputs that scripts/fuzz.sh once found crashing, hanging or leaking: every file
// under tests/data/fuzz/<harness>/ goes to that harness's reader again. The answer may be a
// refusal; the process must survive it (the sanitizers of the test build watch for the rest).

#include "document/VrPalette.h"
#include "fuzz/VrFuzzTargets.h"
#include "support/CaptureLogger.h"
#include "support/Examples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {
std::set<std::string> collectionNames() {
  std::set<std::string> names;
  for (const auto& entry : VrPalette::palettes()) names.insert(entry.key);
  return names;
}
}  // namespace

TEST(FuzzRegressions, EveryKeptInputReplaysWithoutACrash) {
  const fs::path root = fs::path(VORN_TEST_DATA_DIR) / "fuzz";
  ASSERT_TRUE(fs::is_directory(root));
  // The render API's argument strings name files relative to the source tree, as scripts/fuzz.sh
  // runs them; no collection they read may stay behind for later tests.
  const fs::path before = fs::current_path();
  fs::current_path(VORN_SOURCE_DIR);
  const std::set<std::string> collectionsBefore = collectionNames();

  size_t replayed = 0;
  for (const auto& folder : fs::directory_iterator(root)) {
    if (!folder.is_directory()) continue;
    const std::string name = folder.path().filename().string();
    const vrfuzz::Target* target = vrfuzz::findTarget(name);
    ASSERT_NE(target, nullptr) << "no harness called " << name;
    std::vector<fs::path> files;
    for (const auto& file : fs::directory_iterator(folder.path()))
      if (file.is_regular_file()) files.push_back(file.path());
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
      SCOPED_TRACE(file.string());
      const std::string bytes = vrtest::readText(file.string());
      vrtest::CaptureLogger quiet;
      target->feed(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
      ++replayed;
    }
  }
  fs::current_path(before);
  EXPECT_EQ(collectionNames(), collectionsBefore);
  EXPECT_GT(replayed, 0u);
}
