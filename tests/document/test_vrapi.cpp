#include "document/vrapi.h"

#include "base/VrMessage.h"
#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutil.h"
#include "fxmodules/VrFXModule.h"
#include "primitives/VrPrimitive.h"
#include "support/CaptureLogger.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Names = std::vector<std::string>;
using Ints = std::vector<int>;

// The host's localising logger: a key's text is the key followed by its non-empty arguments,
// joined by blanks, so that tests can read which key was sent with which names.
class KeyLogger : public vrtest::CaptureLogger {
 public:
  KeyLogger() : CaptureLogger("orlo") {}
  std::string getLocalized(const std::string& key, const std::string& a1, const std::string& a2,
                           const std::string& a3, const std::string& a4, const std::string& a5,
                           const std::string& a6, const std::string& a7, const std::string& a8,
                           const std::string& a9, const std::string& a10) const override {
    std::string text = key;
    for (const std::string* arg : {&a1, &a2, &a3, &a4, &a5, &a6, &a7, &a8, &a9, &a10})
      if (!arg->empty()) text += " " + *arg;
    return text;
  }
};

// Runs `undo` at the end of the scope.
struct Finally {
  std::function<void()> undo;
  ~Finally() { undo(); }
};

// EXPECT_FAILS(call, text): the call failed (answered false, empty or null) and sent exactly one
// Error, `text`, since the last check, so the calls in between were silent. EXPECT_FAILS_LAST:
// the facade's Error came last (the layers below may report first).
#define EXPECT_FAILS(call, text) EXPECT_TRUE(fails(answeredNothing(call), text))
#define EXPECT_FAILS_LAST(call, text) EXPECT_TRUE(fails(answeredNothing(call), text, true))

bool answeredNothing(bool ok) { return !ok; }
bool answeredNothing(const std::string& text) { return text.empty(); }
bool answeredNothing(const void* object) { return object == nullptr; }
template <class T>
bool answeredNothing(const std::vector<T>& list) {
  return list.empty();
}

// Installs the logger and deletes every collection a test leaves behind.
class VrapiTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vrutil::rootDir();  // its one-time complaint about a missing installation is not ours
    log.clear();
    const Names names = vrapi::palettes();
    before.insert(names.begin(), names.end());
  }
  void TearDown() override {
    for (const std::string& name : vrapi::palettes())
      if (!before.count(name)) vrapi::deletePalette(name);
  }

  // See EXPECT_FAILS.
  ::testing::AssertionResult fails(bool failed, const std::string& text, bool last = false) {
    const Names all = log.errors();
    log.clear();
    std::string got;
    for (const std::string& e : all) got += "[" + e + "] ";
    if (!failed) return ::testing::AssertionFailure() << "the call succeeded; Errors: " << got;
    if (last ? !all.empty() && all.back() == text : all.size() == 1 && all[0] == text)
      return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "expected " << (last ? "last" : "one") << " Error [" << text << "], got " << got;
  }

  // createDescription with the usual choices.
  static std::string create(const std::string& c, const std::string& d,
                            const std::string& p = "Spline", const std::string& g = "Random",
                            const std::string& r = "Renderman",
                            const std::string& i = "Attribute") {
    return vrapi::createDescription(c, d, p, g, r, i);
  }
  // The active primitive, generator, renderer and previewer.
  static Names actives(const std::string& collection, const std::string& description) {
    Names out;
    for (const char* type : {"Primitive", "Generator", "Renderer", "Previewer"})
      out.push_back(vrapi::getActive(collection, description, type));
    return out;
  }
  static std::string groomFile() { return vrtest::examplePath("groom.vorn"); }
  static std::string hairsFile() { return vrtest::examplePath("hairs.vorn"); }

  KeyLogger log;
  std::set<std::string> before;
};

class VrapiCollections : public VrapiTest {};
class VrapiDescriptions : public VrapiTest {};
class VrapiMessages : public VrapiTest {};
class VrapiAttributes : public VrapiTest {};
class VrapiFXModules : public VrapiTest {};
class VrapiGeometry : public VrapiTest {};
class VrapiFiles : public VrapiTest {};

}  // namespace

TEST_F(VrapiCollections, CreateListFindAndDelete) {
  EXPECT_TRUE(vrapi::createPalette("vaB"));
  EXPECT_TRUE(vrapi::createPalette("vaA"));
  EXPECT_FALSE(vrapi::createPalette("vaA"));
  EXPECT_FALSE(vrapi::createPalette(""));
  const Names all = vrapi::palettes();
  EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
  const auto a = std::find(all.begin(), all.end(), "vaA");
  ASSERT_TRUE(a != all.end() && a + 1 != all.end());
  EXPECT_EQ(*(a + 1), "vaB");

  EXPECT_EQ(create("vaB", "hair"), "hair");
  EXPECT_EQ(vrapi::descriptions("vaB"), Names{"hair"});
  EXPECT_EQ(vrapi::palette("hair"), "vaB");
  EXPECT_FAILS(vrapi::palette("noSuchHair"), "Could not find Vorn collection: [noSuchHair]");
  EXPECT_TRUE(vrapi::deletePalette("vaA"));
  EXPECT_FAILS(vrapi::deletePalette("vaA"), "rCouldNotDeleteCollection vaA");
  EXPECT_FAILS(vrapi::descriptions("vaA"), "rCouldNotFindCollection vaA");
}

TEST_F(VrapiDescriptions, CreatingATakenNameAddsASuffix) {
  EXPECT_EQ(create("vaC", "hair", "Spline", "Random", "Renderman", "Guides"), "hair");
  EXPECT_EQ(create("vaC", "hair", "Card", "Uniform"), "hair1");
  EXPECT_EQ(create("vaC", "hair"), "hair2");
  EXPECT_EQ(vrapi::descriptions("vaC"), (Names{"hair", "hair1", "hair2"}));
  EXPECT_TRUE(log.errors().empty());
  // The collection's name space replaces the description's.
  EXPECT_EQ(create("ns:vaC", "other:hair"), "ns:hair");
}

TEST_F(VrapiDescriptions, CreateSetsTheActiveObjectsAndInterpolation) {
  ASSERT_EQ(create("vaC", "hair", "Spline", "Random", "Renderman", "Guides"), "hair");
  EXPECT_EQ(actives("vaC", "hair"), (Names{"SplinePrimitive", "RandomGenerator", "RendermanRenderer", "GLRenderer"}));
  EXPECT_EQ(vrapi::getAttr("iMethod", "vaC", "hair", "SplinePrimitive"), "1");
  // After a spare object is made, only the full list shows it.
  ASSERT_TRUE(vrapi::setActive("vaC", "hair", "UniformGenerator", false));
  Names all = vrapi::objects("vaC", "hair", false);
  std::sort(all.begin(), all.end());
  EXPECT_EQ(all, (Names{"GLRenderer", "RandomGenerator", "RendermanRenderer", "SplinePrimitive", "UniformGenerator"}));
  EXPECT_EQ(vrapi::objects("vaC", "hair", true),
            (Names{"SplinePrimitive", "UniformGenerator", "RendermanRenderer", "GLRenderer"}));

  // A GL renderer that is also the previewer is listed once.
  ASSERT_EQ(create("vaC", "fur", "Card", "Uniform", "GL"), "fur");
  EXPECT_EQ(vrapi::objects("vaC", "fur", true), (Names{"CardPrimitive", "UniformGenerator", "GLRenderer"}));
  EXPECT_EQ(vrapi::getAttr("iMethod", "vaC", "fur", "CardPrimitive"), "0");
  EXPECT_FAILS(vrapi::objects("vaC", "gone", false), "rCouldNotGetObjects vaC gone");
}

TEST_F(VrapiDescriptions, CreateFailuresReportTheirKeyAndKeepNoDescription) {
  EXPECT_FAILS(create("", "hair"), "rNoPaletteName hair Spline Random Renderman Attribute");
  EXPECT_FAILS(create("vaE", ""), "rNoDescriptionName vaE Spline Random Renderman Attribute");
  EXPECT_EQ(VrPalette::palette("vaE"), nullptr);
  EXPECT_FAILS_LAST(create("vaE", "hair", "Bogus"), "rInvalidPrimitive vaE hair Bogus Random Renderman Attribute");
  EXPECT_FAILS_LAST(create("vaE", "hair", "Spline", "Bogus"),
                    "rInvalidGenerator vaE hair Spline Bogus Renderman Attribute");
  EXPECT_FAILS_LAST(create("vaE", "hair", "Spline", "Random", "Bogus"),
                    "rInvalidRenderer vaE hair Spline Random Bogus Attribute");
  EXPECT_FAILS(create("vaE", "hair", "Spline", "Random", "Renderman", "Weights"),
               "rInvalidInterpolation vaE hair Spline Random Renderman Weights");
  // The collection was made on the way; the failed descriptions are gone again.
  ASSERT_NE(VrPalette::palette("vaE"), nullptr);
  EXPECT_TRUE(vrapi::descriptions("vaE").empty());
  EXPECT_EQ(create("vaE", "hair"), "hair");
}

TEST_F(VrapiDescriptions, SetActiveRefusesWrongRenderersWithTheirKeys) {
  ASSERT_EQ(create("vaF", "hair"), "hair");
  EXPECT_FAILS(vrapi::setActive("vaF", "hair", "GLRenderer", false), "rRendererMustBeGL vaF hair GLRenderer");
  EXPECT_EQ(vrapi::getActive("vaF", "hair", "Renderer"), "RendermanRenderer");
  EXPECT_FAILS(vrapi::setActive("vaF", "hair", "FileRenderer", true), "rPreviewerMustBeGL vaF hair FileRenderer");

  EXPECT_TRUE(vrapi::setActive("vaF", "hair", "GLRenderer", true));
  EXPECT_TRUE(vrapi::setActive("vaF", "hair", "FileRenderer", false));
  EXPECT_TRUE(vrapi::setActive("vaF", "hair", "CardPrimitive", false));
  EXPECT_EQ(actives("vaF", "hair"), (Names{"CardPrimitive", "RandomGenerator", "FileRenderer", "GLRenderer"}));
  EXPECT_TRUE(log.errors().empty());

  EXPECT_FAILS_LAST(vrapi::setActive("vaF", "hair", "BogusPrimitive", false),
                    "rCouldNotSetActiveOfType vaF hair BogusPrimitive");
  EXPECT_EQ(vrapi::getActive("vaF", "hair", "Primitive"), "CardPrimitive");
  EXPECT_FAILS(vrapi::setActive("vaF", "hair", "ns:", false), "rCouldNotSetActiveType vaF hair ns:");
  EXPECT_FAILS(vrapi::setActive("vaF", "hair", "", false), "rCouldNotSetActiveType vaF hair");
  EXPECT_FAILS(vrapi::setActive("vaF", "gone", "CardPrimitive", false),
               "rCouldNotSetActiveType vaF gone CardPrimitive");
  EXPECT_FAILS(vrapi::getActive("vaF", "hair", "Shader"), "rUnknownTypeGiven vaF hair Shader");
  EXPECT_FAILS(vrapi::getActive("vaF", "gone", "Primitive"), "rCouldNotFindActiveType vaF gone Primitive");
}

TEST_F(VrapiDescriptions, DeleteRemovesFromTheCollection) {
  ASSERT_EQ(create("vaF", "hair"), "hair");
  ASSERT_EQ(create("vaF", "fur"), "fur");
  EXPECT_TRUE(vrapi::deleteDescription("vaF", "hair"));
  EXPECT_EQ(vrapi::descriptions("vaF"), Names{"fur"});
  EXPECT_FAILS(vrapi::deleteDescription("vaF", "hair"), "rCouldNotDeleteDescription vaF hair");
  EXPECT_FAILS(vrapi::deleteDescription("gone", "fur"), "rCouldNotDeleteDescription gone fur");
}

TEST_F(VrapiMessages, LevelsAreLimitedToFiveAndOtherKindsAreZero) {
  const unsigned debug = VRDebugLevel;
  const Finally restore{[debug, w = VRWarningLevel, s = VRStatsLevel, q = VRQuitOnError] {
    VRDebugLevel = debug, VRWarningLevel = w, VRStatsLevel = s, VRQuitOnError = q;
  }};

  // Set a level: it reads back, and the global holds it.
  auto set = [](const char* kind, int level, int expected) {
    EXPECT_TRUE(vrapi::setMessageLevel(kind, level)) << kind;
    EXPECT_EQ(vrapi::getMessageLevel(kind), expected) << kind << " " << level;
  };
  set("debug", 9, 5);
  EXPECT_EQ(VRDebugLevel, 5u);
  VRDebugLevel = debug;
  set("warning", 3, 3);
  EXPECT_EQ(VRWarningLevel, 3u);
  set("stats", -2, 0);
  set("stats", 4, 4);
  EXPECT_EQ(VRStatsLevel, 4u);
  set("quitOnError", 7, 1);
  EXPECT_TRUE(VRQuitOnError);
  set("quitOnError", 0, 0);
  EXPECT_FALSE(vrapi::setMessageLevel("other", 2));
  EXPECT_EQ(vrapi::getMessageLevel("other"), 0);
}

TEST_F(VrapiAttributes, GetObjectResolvesTheTripleWithExactErrors) {
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  VrPalette* groom = VrPalette::palette("groom");
  EXPECT_EQ(vrutil::getObject("groom", "", ""), groom);
  EXPECT_EQ(vrutil::getObject("groom", "", "RandomGenerator"), groom);  // no description: collection
  EXPECT_EQ(vrutil::getObject("groom", "scalp", ""), groom->description("scalp"));
  EXPECT_EQ(vrutil::getObject("groom", "scalp", "RandomGenerator")->typeName(), "RandomGenerator");
  EXPECT_EQ(vrutil::getObject("groom", "scalp", "Clumping")->typeName(), "ClumpingFXModule");
  EXPECT_EQ(vrutil::getObject("groom", "scalp", "groom"), groom);

  EXPECT_FAILS(vrutil::getObject("nope", "scalp", "Clumping"), "Vorn collection not found. [nope]");
  EXPECT_FAILS(vrutil::getObject("groom", "nope", "Clumping"), "Vorn description not found. [nope]");
  // Modules of scalp only; findObject looks without complaint.
  EXPECT_FAILS(vrutil::getObject("groom", "brows", "Clumping"), "Object not found: [Clumping]");
  EXPECT_EQ(vrutil::findObject("groom", "brows", "Clumping"), nullptr);
  EXPECT_TRUE(log.errors().empty());
}

TEST_F(VrapiAttributes, ListsSplitCustomNamesFromTheOthers) {
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  const Names collectionAttrs{"name", "parent", "vrDataPath", "vrProjectPath", "vrDogTag"};
  EXPECT_EQ(vrapi::attrs("groom", "", ""), collectionAttrs);
  Names all = collectionAttrs;
  all.push_back("custom_float_globalLength");
  EXPECT_EQ(vrapi::allAttrs("groom", "", ""), all);
  EXPECT_EQ(vrapi::customAttrs("groom", "", ""), Names{"custom_float_globalLength"});
  // The spline declares its attributes; the file's values and none of the custom ones are listed.
  const Names spline = vrapi::attrs("groom", "scalp", "SplinePrimitive");
  for (const char* name : {"length", "width", "iMethod", "taper", "widthRamp"})
    EXPECT_NE(std::find(spline.begin(), spline.end(), name), spline.end()) << name;
  EXPECT_EQ(std::find(spline.begin(), spline.end(), "custom_color_tint"), spline.end());
  EXPECT_EQ(vrapi::customAttrs("groom", "scalp", "SplinePrimitive"), Names{"custom_color_tint"});
  EXPECT_EQ(vrapi::attrs("groom", "scalp", "Cut"), (Names{"name", "active", "mask", "amount", "rebuildType"}));
  EXPECT_FAILS(vrapi::attrs("groom", "scalp", "Nope"), "Object not found: [Nope]");
  EXPECT_FAILS(vrapi::customAttrs("nope", "", ""), "Vorn collection not found. [nope]");
}

TEST_F(VrapiAttributes, GetSetAndTexturesGoThroughTheNames) {
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  EXPECT_TRUE(vrapi::attrExists("density", "groom", "scalp", "RandomGenerator"));
  EXPECT_FALSE(vrapi::attrExists("colour", "groom", "scalp", "RandomGenerator"));
  EXPECT_FAILS(vrapi::attrExists("density", "groom", "scalp", "Bogus"), "rCallToAttrExists density groom scalp Bogus");

  EXPECT_EQ(vrutil::getTexture("density", "groom", "scalp", "RandomGenerator"), "${DESC}/density");
  EXPECT_EQ(vrapi::getAttr("density", "groom", "scalp", "RandomGenerator"), "800.0");
  EXPECT_EQ(vrapi::getAttr("minDensity", "groom", "scalp", ""), "0.05");
  // A new value replaces the linked texture.
  EXPECT_TRUE(vrapi::setAttr("density", "900.0", "groom", "scalp", "RandomGenerator"));
  EXPECT_EQ(vrutil::getTexture("density", "groom", "scalp", "RandomGenerator"), "");
  EXPECT_EQ(vrapi::getAttr("density", "groom", "scalp", "RandomGenerator"), "900.0");
  // The description parses what it is given.
  EXPECT_TRUE(vrapi::setAttr("minDensity", "2", "groom", "scalp", ""));
  EXPECT_EQ(VrPalette::palette("groom")->description("scalp")->lodMinDensity(), 1.0);
  // Only attributes the object has are set; a missing one reads empty, silently.
  EXPECT_FALSE(vrapi::setAttr("colour", "1", "groom", "scalp", "RandomGenerator"));
  EXPECT_EQ(vrapi::getAttr("colour", "groom", "scalp", "RandomGenerator"), "");
  EXPECT_FALSE(vrapi::attrExists("colour", "groom", "scalp", "RandomGenerator"));
  EXPECT_FAILS(vrapi::setAttr("density", "1", "groom", "scalp", "Bogus"), "Call to setAttr failed.");
  EXPECT_FAILS(vrapi::getAttr("density", "groom", "gone", "RandomGenerator"), "Call to getAttr failed.");

  EXPECT_EQ(vrutil::getTexture("mask", "groom", "scalp", "Clumping"), "${DESC}/clumpMask");
  EXPECT_TRUE(vrapi::setTextureAttr("mask", "${DESC}/m", "groom", "scalp", "RandomGenerator"));
  EXPECT_EQ(vrutil::getTexture("mask", "groom", "scalp", "RandomGenerator"), "${DESC}/m");
  EXPECT_FALSE(vrapi::setTextureAttr("colour", "${DESC}/c", "groom", "scalp", "RandomGenerator"));
  EXPECT_FAILS(vrapi::setTextureAttr("mask", "x", "groom", "scalp", "Bogus"), "Call to setTexture failed.");
  EXPECT_FAILS(vrutil::getTexture("mask", "nope", "scalp", "Clumping"), "Call to getTexture failed.");
}

TEST_F(VrapiAttributes, ThreadingPseudoAttributesNeedNoObject) {
  // All, patch and collision multithreading.
  auto threading = [] {
    return std::make_tuple(VrTaskManager::multithreadingEnabled(),
                           VrTaskManager::patchMultithreading(),
                           VrTaskManager::collisionMultithreading());
  };
  const auto was = threading();
  const Finally restore{[was] {
    VrTaskManager::setMultithreading(std::get<0>(was));
    VrTaskManager::setPatchMultithreading(std::get<1>(was));
    VrTaskManager::setCollisionMultithreading(std::get<2>(was));
  }};

  EXPECT_TRUE(vrapi::setAttr("Multithreading", "1", "", "", ""));
  EXPECT_EQ(vrapi::getAttr("Multithreading", "", "", ""), "1");
  EXPECT_EQ(vrapi::getAttr("MultithreadingPatch", "", "", ""), "1");
  EXPECT_EQ(vrapi::getAttr("MultithreadingCollision", "nope", "", ""), "1");
  EXPECT_TRUE(vrapi::setAttr("MultithreadingCollision", "0", "", "", ""));
  EXPECT_EQ(threading(), std::make_tuple(true, true, false));
  // Only 1 means on.
  EXPECT_TRUE(vrapi::setAttr("Multithreading", "2", "", "", ""));
  EXPECT_EQ(threading(), std::make_tuple(false, false, false));
  EXPECT_TRUE(vrapi::setAttr("MultithreadingPatch", "1", "", "", ""));
  EXPECT_EQ(vrapi::getAttr("MultithreadingPatch", "", "", ""), "1");
  EXPECT_EQ(vrapi::getAttr("Multithreading", "", "", ""), "0");
  EXPECT_TRUE(log.errors().empty());
}

TEST_F(VrapiAttributes, CustomAttributesAreAddedAndRemoved) {
  ASSERT_EQ(create("vaG", "hair", "Card"), "hair");
  // On the collection: a global expression.
  EXPECT_TRUE(vrapi::addCustomAttr("custom_float_spread", "vaG", "", ""));
  EXPECT_EQ(vrapi::getAttr("custom_float_spread", "vaG", "", ""), "0.0");
  EXPECT_TRUE(VrPalette::palette("vaG")->namedAttr("spread"));
  EXPECT_FAILS(vrapi::addCustomAttr("custom_float_spread", "vaG", "", ""),
               "Call to addCustomAttr failed. custom_float_spread already exists. [vaG]");

  // A card's own attributes, then the custom ones in the order they came.
  const Names cardAttrs = vrapi::attrs("vaG", "hair", "CardPrimitive");
  ASSERT_FALSE(cardAttrs.empty());
  auto cardWith = [&](const std::string& custom) {
    Names names = cardAttrs;
    names.push_back(custom);
    return names;
  };
  EXPECT_TRUE(vrapi::addCustomAttr("custom_float_bend", "vaG", "hair", "CardPrimitive"));
  EXPECT_TRUE(vrapi::addCustomAttr("archive_vector_tint[1]", "vaG", "hair", "CardPrimitive"));
  EXPECT_EQ(vrapi::attrs("vaG", "hair", "CardPrimitive"), cardWith("archive_vector_tint[1]"));
  EXPECT_EQ(vrapi::customAttrs("vaG", "hair", "CardPrimitive"), (Names{"custom_float_bend", "archive_vector_tint[1]"}));
  EXPECT_FAILS(vrapi::addCustomAttr("custom_float_bend", "vaG", "hair", "CardPrimitive"),
               "Call to addCustomAttr failed. custom_float_bend already exists. [CardPrimitive]");
  EXPECT_FAILS(vrapi::addCustomAttr("spread", "vaG", "", ""), "Could not add custom attribute [spread]");
  EXPECT_FAILS(vrapi::addCustomAttr("custom_", "vaG", "", ""), "Could not add custom attribute [custom_]");
  EXPECT_FAILS(vrapi::addCustomAttr("custom_float_x", "vaG", "gone", ""), "Call to addCustomAttr failed. [vaG, gone]");
  EXPECT_FAILS(vrapi::addCustomAttr("custom_float_x", "vaG", "hair", "Nope"),
               "Call to addCustomAttr failed. [vaG, hair, Nope]");

  EXPECT_TRUE(vrapi::remCustomAttr("custom_float_spread", "vaG", "", ""));
  EXPECT_FALSE(VrPalette::palette("vaG")->namedAttr("spread"));
  EXPECT_FALSE(vrapi::attrExists("custom_float_spread", "vaG", "", ""));
  EXPECT_TRUE(vrapi::remCustomAttr("archive_vector_tint[1]", "vaG", "hair", "CardPrimitive"));
  EXPECT_EQ(vrapi::allAttrs("vaG", "hair", "CardPrimitive"), cardWith("custom_float_bend"));
  EXPECT_FAILS(vrapi::remCustomAttr("custom_float_spread", "vaG", "", ""),
               "Could not remove custom attribute [custom_float_spread]");
  EXPECT_FAILS(vrapi::remCustomAttr("name", "vaG", "", ""), "Could not remove custom attribute [name]");
  EXPECT_EQ(vrapi::getAttr("name", "vaG", "", ""), "vaG");
  EXPECT_FAILS(vrapi::remCustomAttr("custom_float_bend", "vaG", "gone", "CardPrimitive"),
               "Could not remove custom attribute [custom_float_bend]");
}

TEST_F(VrapiAttributes, ValuesFromAFileAndTheModuleList) {
  EXPECT_EQ(vrapi::getAttrFromFile("mask", "Clumping", groomFile()), Names{"map('${DESC}/clumpMask')"});
  const Names modules = vrapi::availableModules();
  EXPECT_TRUE(std::is_sorted(modules.begin(), modules.end()));
  for (const char* name : {"SplinePrimitive", "RandomGenerator", "GLRenderer", "NoiseFXModule"})
    EXPECT_NE(std::find(modules.begin(), modules.end(), name), modules.end()) << name;
}

TEST_F(VrapiFXModules, AddMoveRemoveKeepTheStackInOrder) {
  ASSERT_EQ(create("vaH", "hair"), "hair");
  EXPECT_EQ(vrapi::addFXModule("vaH", "hair", "NoiseFXModule", "noiseA"), "noiseA");
  EXPECT_EQ(vrapi::addFXModule("vaH", "hair", "CutFXModule", "cutA"), "cutA");
  EXPECT_EQ(vrapi::addFXModule("vaH", "hair", "ClumpingFXModule", "clumpA"), "clumpA");
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), (Names{"noiseA", "cutA", "clumpA"}));
  EXPECT_EQ(vrapi::fxModuleType("vaH", "hair", "cutA"), "CutFXModule");

  // Each move, then the stack and the module indices; steps past either end stop there.
  auto indexOf = [](const std::string& module) {
    return static_cast<VrFXModule*>(vrutil::getObject("vaH", "hair", module))->moduleIndex();
  };
  auto moved = [&](const std::string& module, int by, const Names& expected) {
    EXPECT_TRUE(vrapi::moveFXModule("vaH", "hair", module, by)) << module << " " << by;
    EXPECT_EQ(vrapi::fxModules("vaH", "hair"), expected) << module << " " << by;
    for (size_t k = 0; k < expected.size(); ++k) EXPECT_EQ(indexOf(expected[k]), int(k));
  };
  moved("clumpA", -1, {"noiseA", "clumpA", "cutA"});
  moved("noiseA", 5, {"clumpA", "cutA", "noiseA"});
  moved("noiseA", -10, {"noiseA", "clumpA", "cutA"});
  moved("cutA", 0, {"noiseA", "clumpA", "cutA"});

  EXPECT_TRUE(vrapi::removeFXModule("vaH", "hair", "clumpA"));
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), (Names{"noiseA", "cutA"}));
  EXPECT_EQ(indexOf("cutA"), 1);
  EXPECT_FAILS(vrapi::removeFXModule("vaH", "hair", "clumpA"), "rFxModuleNotFound vaH hair clumpA");
}

TEST_F(VrapiFXModules, FailuresReportTheirKeys) {
  ASSERT_EQ(create("vaH", "hair"), "hair");
  ASSERT_EQ(vrapi::addFXModule("vaH", "hair", "WindFXModule", "windA"), "windA");
  EXPECT_FAILS_LAST(vrapi::addFXModule("vaH", "hair", "SplinePrimitive", "x"),
                    "rCouldNotAddModifierType vaH hair SplinePrimitive x");
  EXPECT_FAILS(vrapi::addFXModule("vaH", "gone", "WindFXModule", "x"),
               "rCouldNotAddModifierType vaH gone WindFXModule x");
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), Names{"windA"});
  EXPECT_FAILS(vrapi::fxModuleType("vaH", "hair", "nope"), "rCouldNotFindModifierType vaH hair nope");
  EXPECT_FAILS(vrapi::fxModules("vaH", "gone"), "rCouldNotFindFxModules vaH gone");
  EXPECT_FAILS(vrapi::moveFXModule("vaH", "hair", "nope", 1), "rFxModuleNotFoundMove vaH hair nope");
  EXPECT_FAILS(vrapi::moveFXModule("vaH", "gone", "windA", 1), "rCouldNotMoveModifierType vaH gone windA");
  EXPECT_FAILS(vrapi::removeFXModule("nope", "hair", "windA"), "rCouldNotRemoveModifierType nope hair windA");
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), Names{"windA"});
}

TEST_F(VrapiGeometry, BoundFacesAndCulledPrimsOfTheExample) {
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  EXPECT_EQ(vrapi::boundGeometry("groom", "scalp"), Names{"scalpShape"});
  EXPECT_EQ(vrapi::boundGeometry("groom", "brows"), Names{"browShape"});
  EXPECT_EQ(vrapi::boundFaces("groom", "scalp", "scalpShape", false), (Ints{0, 1, 2, 3}));
  EXPECT_EQ(vrapi::boundFaces("groom", "brows", "browShape", true), Ints{0});
  // "culledPrims 2  1 2 7 9  3 1 4": face 1 culls 7 and 9, face 3 culls 4.
  EXPECT_EQ(vrapi::culledPrimPatches("groom", "scalp"), Names{"scalpShape"});
  EXPECT_TRUE(vrapi::culledPrimPatches("groom", "brows").empty());
  EXPECT_EQ(vrapi::culledPrimFaces("groom", "scalp", "scalpShape"), (Ints{1, 3}));
  EXPECT_TRUE(vrapi::culledPrimFaces("groom", "brows", "browShape").empty());
  EXPECT_EQ(vrapi::culledPrims("groom", "scalp", "scalpShape", 1), (Ints{7, 9}));
  EXPECT_EQ(vrapi::culledPrims("groom", "scalp", "scalpShape", 3), Ints{4});
  EXPECT_TRUE(vrapi::culledPrims("groom", "scalp", "scalpShape", 0).empty());

  // Missing descriptions and patches.
  EXPECT_FAILS(vrapi::boundGeometry("groom", "nope"), "rCouldNotReturnBoundGeo groom nope");
  EXPECT_FAILS(vrapi::boundFaces("groom", "nope", "scalpShape", false),
               "rCouldNotReturnBoundFace groom nope scalpShape");
  EXPECT_FAILS(vrapi::boundFaces("groom", "scalp", "browShape", false),
               "rCouldNotReturnBoundFaceNotFound groom scalp browShape");
  EXPECT_FAILS(vrapi::culledPrimPatches("nope", "scalp"), "rCouldNotReturnPatches nope scalp");
  EXPECT_FAILS(vrapi::culledPrimFaces("groom", "nope", "scalpShape"), "rCouldNotReturnPatchIds groom nope scalpShape");
  EXPECT_FAILS(vrapi::culledPrimFaces("groom", "scalp", "nope"), "rCouldNotReturnPatchNotFound groom scalp nope");
  EXPECT_FAILS(vrapi::culledPrims("groom", "nope", "scalpShape", 1),
               "rCouldNotReturnCulledPrims groom nope scalpShape");
  EXPECT_FAILS(vrapi::culledPrims("groom", "scalp", "nope", 1), "rCouldNotReturnPatchNotFound groom scalp nope");
}

TEST_F(VrapiFiles, ImportPaletteFailures) {
  const size_t count = vrapi::palettes().size();
  EXPECT_FAILS(vrapi::importPalette("", "", "ns"), "rSpecifyFileName ns");
  const std::string missing = groomFile() + ".missing";
  EXPECT_FAILS_LAST(vrapi::importPalette(missing, "", ""), "rFailedToImportCollectionFromFile " + missing);
  // A delta file that cannot be applied: the collection read is deleted again.
  EXPECT_FAILS_LAST(vrapi::importPalette(hairsFile(), "hairs.delta", ""),
                    "rFailedToApplyDelta " + hairsFile() + " hairs.delta");
  EXPECT_EQ(VrPalette::palette("hairs"), nullptr);
  EXPECT_EQ(vrapi::palettes().size(), count);
}

TEST_F(VrapiFiles, PaletteRoundTripsThroughAFile) {
  vrtest::TempDir dir;
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  const std::string first = dir.file("first.vorn");
  ASSERT_TRUE(vrapi::exportPalette("groom", first));
  ASSERT_TRUE(vrapi::deletePalette("groom"));
  ASSERT_EQ(vrapi::importPalette(first, "", ""), "groom");
  EXPECT_EQ(vrapi::descriptions("groom"), (Names{"scalp", "brows"}));
  EXPECT_FAILS(vrapi::exportPalette("groom", ""), "rYouMustSpecifyAFileName groom");
  EXPECT_FAILS(vrapi::exportPalette("nope", first), "rCouldNotExportCollection nope " + first);
}

TEST_F(VrapiFiles, DescriptionRoundTripsThroughAFile) {
  vrtest::TempDir dir;
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  const std::string file = dir.file("scalp.vorn"), missing = dir.file("missing.vorn");
  ASSERT_TRUE(vrapi::exportDescription("groom", "scalp", file, true));
  // Into the same collection the name is made unique.
  EXPECT_EQ(vrapi::importDescription("groom", file), "scalp1");
  EXPECT_EQ(vrapi::fxModules("groom", "scalp1"), (Names{"Clumping", "Cut"}));
  EXPECT_EQ(vrapi::getAttr("density", "groom", "scalp1", "RandomGenerator"), "800.0");
  // Into another collection it keeps its name and brings the global expression it calls.
  ASSERT_TRUE(vrapi::createPalette("vaI"));
  EXPECT_EQ(vrapi::importDescription("vaI", file), "scalp");
  EXPECT_EQ(vrapi::getAttr("custom_float_globalLength", "vaI", "", ""), "2.5*rand()");
  EXPECT_EQ(vrapi::getAttr("minDensity", "vaI", "scalp", ""), "0.05");

  EXPECT_FAILS(vrapi::importDescription("groom", ""), "rSpecifyFileNameError groom");
  EXPECT_FAILS(vrapi::importDescription("nope", file), "rCouldNotImportDescription nope " + file);
  EXPECT_FAILS_LAST(vrapi::importDescription("groom", missing), "rFailedToImportDescription groom " + missing);
  EXPECT_FAILS(vrapi::exportDescription("groom", "scalp", "", false), "rSpecifyFileNameExportDesc groom scalp");
  EXPECT_FAILS(vrapi::exportDescription("groom", "nope", file, false), "rCouldNotExportDesc groom nope " + file);
}

TEST_F(VrapiFiles, FXModuleRoundTripsThroughAFile) {
  vrtest::TempDir dir;
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  ASSERT_EQ(create("vaJ", "hair"), "hair");
  const std::string file = dir.file("clump.vorn");
  ASSERT_TRUE(vrapi::exportFXModule("groom", "scalp", "Clumping", file));
  EXPECT_EQ(vrapi::importFXModule("vaJ", "hair", file), "Clumping");
  EXPECT_EQ(vrapi::fxModules("vaJ", "hair"), Names{"Clumping"});
  EXPECT_EQ(vrapi::getAttr("mask", "vaJ", "hair", "Clumping"), "map('${DESC}/clumpMask')");

  EXPECT_FAILS(vrapi::exportFXModule("groom", "scalp", "Clumping", ""), "rModifierExportFileName groom scalp Clumping");
  EXPECT_FAILS(vrapi::exportFXModule("groom", "scalp", "Noise", file),
               "rCouldNotFindModifier groom scalp Noise " + file);
  EXPECT_FAILS(vrapi::importFXModule("vaJ", "hair", ""), "rFileNameImportModifier vaJ hair");
  EXPECT_FAILS(vrapi::importFXModule("vaJ", "gone", file), "rCouldNotImportModifier vaJ gone " + file);
  EXPECT_FAILS_LAST(vrapi::importFXModule("vaJ", "hair", groomFile()),
                    "rCouldNotImportModifierFile vaJ hair " + groomFile());
  EXPECT_EQ(vrapi::fxModules("vaJ", "hair"), Names{"Clumping"});
}

TEST_F(VrapiFiles, PresetCallsAndTheirKeys) {
  vrtest::TempDir dir;
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  const std::string file = dir.file("scalp.vornpreset"), missing = dir.file("missing.vornpreset");
  ASSERT_TRUE(vrapi::exportDescriptionAsPreset("groom", "scalp", file, false, true));
  EXPECT_EQ(vrapi::importDescriptionAsPreset("groom", file), "scalp1");
  EXPECT_TRUE(vrapi::boundGeometry("groom", "scalp1").empty());
  EXPECT_TRUE(vrapi::fxModuleIncludedInPreset("groom", "scalp", "Cut"));
  const VrPrimitive* spline = VrPalette::palette("groom")->description("scalp")->activePrimitive();
  EXPECT_TRUE(vrapi::initInterpolation("groom", "scalp", ""));  // the active primitive
  EXPECT_TRUE(spline->hasCandidates());

  EXPECT_FAILS(vrapi::exportDescriptionAsPreset("groom", "nope", file, false, true),
               "rCouldNotExportDescAsPreset groom nope " + file);
  EXPECT_FAILS(vrapi::importDescriptionAsPreset("nope", file), "rCouldNotImportDescAsPreset nope " + file);
  EXPECT_FAILS_LAST(vrapi::importDescriptionAsPreset("groom", missing), "rFailedToImportDescAsPreset groom " + missing);
  EXPECT_FAILS(vrapi::fxModuleIncludedInPreset("groom", "scalp", "Noise"),
               "rCouldNotFindModifierForPreset groom scalp Noise");
  EXPECT_FAILS(vrapi::initInterpolation("groom", "scalp", "RandomGenerator"),
               "rCouldNotInitInterpolation groom scalp RandomGenerator");
}

TEST_F(VrapiFiles, FindsFilesAlongTheCollectionDataPath) {
  vrtest::TempDir dir;
  dir.write("maps/density.ptx", "");
  ASSERT_EQ(create("vaK", "hair"), "hair");
  ASSERT_TRUE(vrapi::setAttr("vrDataPath", "/nowhere/;" + dir.path(), "vaK", "", ""));
  EXPECT_EQ(vrapi::findFileInVrDataPath("maps/density.ptx", "", "vaK", "hair"), dir.file("maps/density.ptx"));
  EXPECT_FAILS(vrapi::findFileInVrDataPath("maps/${DESC}.ptx", "", "vaK", "gone"),
               "rCouldNotFindFileInDataPath maps/${DESC}.ptx vaK gone");
  EXPECT_FAILS(vrapi::findFileInVrDataPath("maps/$g.ptx", "scalp", "vaK", "hair"),
               "rCouldNotFindFileInDataPath maps/$g.ptx scalp vaK hair");
}
