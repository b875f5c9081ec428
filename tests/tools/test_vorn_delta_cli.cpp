// The delta commands of the `vorn` tool (delta create, delta apply) and the facade's delta calls
// through `vorn api`, run as a separate process on the bundled examples.

#include "support/Examples.h"
#include "support/CliExpect.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using vrtest::ran;
using vrtest::ranWith;

namespace {

const std::string hairsFile = vrtest::examplePath("hairs.vorn");
const std::string groomFile = vrtest::examplePath("groom.vorn");

// One shell word, whatever it holds.
std::string q(const std::string& text) { return vrtest::shellWord(text); }
using vrtest::vorn;

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// A copy of `base` with one attribute set by `vorn set`.
std::string edited(const vrtest::TempDir& dir, const std::string& base, const std::string& name,
                   const std::string& arguments) {
  const std::string copy = dir.file(name);
  const auto set = vorn("set -o " + q(copy) + " " + q(base) + " " + arguments);
  EXPECT_EQ(set.exitCode, 0) << set.output;
  return copy;
}

// The body of a delta file: what follows its header.
std::string body(const std::string& path) {
  const std::string text = vrtest::fromFileVersion(vrtest::readText(path));
  return text.substr(text.find('\n') + 1);
}

}  // namespace

TEST(VornCliDelta, CreateAndApplyRoundTrip) {
  vrtest::TempDir dir;
  const std::string changed = edited(dir, hairsFile, "dense.vorn", "density 300.0 one RandomGenerator");
  const std::string delta = dir.file("dense.delta");
  EXPECT_TRUE(ran(vorn("delta create " + q(hairsFile) + " " + q(changed) + " " + q(delta)), 0, ""));
  EXPECT_EQ(body(delta), "\none    RandomGenerator    density    300.0\n");

  const std::string out = dir.file("applied.vorn");
  const auto apply = vorn("delta apply " + q(hairsFile) + " " + q(delta) + " -o " + q(out));
  EXPECT_EQ(apply.exitCode, 0) << apply.output;
  EXPECT_EQ(vrtest::fromFileVersion(vrtest::readText(out)), vrtest::fromFileVersion(vrtest::readText(changed)));
}

TEST(VornCliDelta, CreateExitStatusSaysWhetherAnythingDiffers) {
  vrtest::TempDir dir;
  const std::string delta = dir.file("same.delta");
  const auto same = vorn("delta create " + q(groomFile) + " " + q(groomFile) + " " + q(delta));
  EXPECT_EQ(same.exitCode, 1) << same.output;
  EXPECT_TRUE(std::filesystem::exists(delta));

  // A data path changed anywhere but at its front cannot be expressed: status 2 and no file.
  const std::string moved = edited(dir, hairsFile, "moved.vorn", "vrDataPath '/proj/hairs/;/late/'");
  const std::string refused = dir.file("refused.delta");
  EXPECT_TRUE(ranWith(vorn("delta create " + q(hairsFile) + " " + q(moved) + " " + q(refused)), 2,
                      "vorn: no delta written to " + refused + "\n"));
  EXPECT_FALSE(std::filesystem::exists(refused));

  EXPECT_TRUE(ranWith(vorn("delta create " + q(dir.file("none.vorn")) + " " + q(groomFile) + " " + q(delta)), 2,
                      "vorn: no such file: " + dir.file("none.vorn")));
  EXPECT_EQ(vorn("delta create " + q(groomFile) + " " + q(groomFile)).exitCode, 2);
  EXPECT_EQ(vorn("delta").exitCode, 2);
}

TEST(VornCliDelta, ApplyRunsDeltasInOrder) {
  vrtest::TempDir dir;
  const std::string first = dir.write("first.delta", "one    SplinePrimitive    length    5.0\n"
                                                     "Patch\tculledPrims\tone\tpPlaneShape1\t1\t2\t4 8\n");
  const std::string second = dir.write("second.delta", "one    SplinePrimitive    length    6.0\n"
                                                       "one    NoiseFXModule    Noise    magnitude    0.4\n");
  const std::string out = dir.file("out.vorn");
  const auto apply = vorn("delta apply " + q(hairsFile) + " " + q(first) + " " + q(second) + " -o " + q(out));
  EXPECT_EQ(apply.exitCode, 0) << apply.output;
  EXPECT_EQ(vorn("get " + q(out) + " length one SplinePrimitive").output, "6.0\n");
  EXPECT_TRUE(contains(vorn("ls " + q(out)).output, "      culled on face 1: 4 8\n"));
}

TEST(VornCliDelta, ApplyFailuresWriteNothing) {
  vrtest::TempDir dir;
  const std::string out = dir.file("out.vorn");
  const std::string broken = dir.write("broken.delta", "one    SplinePrimitive    length    5.0\n"
                                                       "ghost    SplinePrimitive    length    1.0\n");
  EXPECT_TRUE(ran(vorn("delta apply " + q(hairsFile) + " " + q(broken) + " -o " + q(out)), 1,
                  "error: Failed to find description ghost in collection hairs. Abort applying delta: " + broken +
                      "\nvorn: could not apply " + broken + "; nothing was written\n"));
  EXPECT_FALSE(std::filesystem::exists(out));

  const std::string unknown = dir.write("unknown.delta", "AddFXModule    one    SplinePrimitive    TrimFXModule    trim\n");
  const auto error = vorn("delta apply " + q(hairsFile) + " " + q(unknown) + " -o " + q(out));
  EXPECT_EQ(error.exitCode, 1) << error.output;
  EXPECT_TRUE(contains(error.output, "error: Failed to add modifier trim to description\n")) << error.output;
  EXPECT_TRUE(contains(error.output, "vorn: the deltas did not apply cleanly; nothing was written\n"));
  EXPECT_FALSE(std::filesystem::exists(out));

  const std::string missing = dir.file("missing.delta");
  EXPECT_TRUE(ranWith(vorn("delta apply " + q(hairsFile) + " " + q(missing) + " -o " + q(out)), 1,
                      "error: Failed to open delta file: " + missing + "\n"));

  // Warnings do not stop the apply.
  const std::string odd = dir.write("odd.delta", "one    Gizmo    length    1.0\n");
  EXPECT_TRUE(ran(vorn("delta apply " + q(hairsFile) + " " + q(odd) + " -o " + q(out)), 0,
                  "warning: Unknown token [Gizmo] found in delta file: " + odd + "\n"));

  EXPECT_EQ(vorn("delta apply " + q(hairsFile) + " " + q(odd)).exitCode, 2);
  EXPECT_EQ(vorn("delta apply " + q(hairsFile) + " -o " + q(out)).exitCode, 2);
}

TEST(VornCliDelta, FacadeDeltaCallsInAScript) {
  vrtest::TempDir dir;
  const std::string delta = dir.file("shot.delta");
  const std::string script = dir.write("deltas.api",
                                       "importPalette " + hairsFile + " \"\" \"\"\n"
                                       "canCreateDelta hairs\n"
                                       "createDelta hairs " + delta + "\n"
                                       "setAttr length 9.0 hairs one SplinePrimitive\n"
                                       "createDelta hairs " + delta + "\n"
                                       "deletePalette hairs\n"
                                       "importPalette " + hairsFile + " " + delta + " \"\"\n"
                                       "getAttr length hairs one SplinePrimitive\n"
                                       "applyDelta hairs \"\"\n"
                                       "initSnapshot hairs\n"
                                       "createDelta nowhere " + delta + "\n"
                                       "applyDelta nowhere " + delta + "\n");
  EXPECT_TRUE(ran(vorn("api " + q(script)), 1,
                  "hairs\n"
                  "true\n"
                  "0\n"
                  "true\n"
                  "1\n"
                  "true\n"
                  "hairs\n"
                  "9.0\n"
                  "true\n"
                  "true\n"
                  "error: rFailedDeltaCollectionNotFound nowhere " + delta + "\n"
                  "-1\n"
                  "error: rPaletteDoesNotExist nowhere " + delta + "\n"
                  "false\n"));
}
