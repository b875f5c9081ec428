#include "document/vrapi.h"

#include "document/VrDescription.h"
#include "document/VrMessage.h"
#include "document/VrPalette.h"
#include "document/VrTaskManager.h"
#include "document/vrutil.h"
#include "fxmodules/VrFXModule.h"
#include "support/CaptureLogger.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
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
  std::string lastError() const {
    const Names all = errors();
    return all.empty() ? std::string() : all.back();
  }
};

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

  // Exactly one Error since the last clear, with this text.
  ::testing::AssertionResult oneError(const std::string& text) {
    const Names all = log.errors();
    log.clear();
    if (all.size() == 1 && all[0] == text) return ::testing::AssertionSuccess();
    std::string got;
    for (const std::string& e : all) got += "[" + e + "] ";
    return ::testing::AssertionFailure() << "expected one Error [" << text << "], got " << got;
  }
  // The facade's Error came last (the layers below may report first).
  ::testing::AssertionResult lastError(const std::string& text) {
    const std::string last = log.lastError();
    log.clear();
    if (last == text) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "last Error was [" << last << "], not [" << text << "]";
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

// ---------------------------------------------------------------------------------------------

TEST_F(VrapiCollections, CreateListFindAndDelete) {
  EXPECT_TRUE(vrapi::createPalette("vaB"));
  EXPECT_TRUE(vrapi::createPalette("vaA"));
  EXPECT_FALSE(vrapi::createPalette("vaA"));
  EXPECT_FALSE(vrapi::createPalette(""));
  EXPECT_TRUE(log.errors().empty());

  const Names all = vrapi::palettes();
  EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
  const auto a = std::find(all.begin(), all.end(), "vaA");
  ASSERT_NE(a, all.end());
  ASSERT_NE(a + 1, all.end());
  EXPECT_EQ(*(a + 1), "vaB");

  EXPECT_EQ(vrapi::createDescription("vaB", "hair", "Spline", "Random", "Renderman", "Attribute"),
            "hair");
  EXPECT_EQ(vrapi::descriptions("vaB"), Names{"hair"});
  EXPECT_EQ(vrapi::palette("hair"), "vaB");
  EXPECT_EQ(vrapi::palette("noSuchHair"), "");
  EXPECT_TRUE(oneError("Could not find Vorn collection: [noSuchHair]"));

  EXPECT_TRUE(vrapi::deletePalette("vaA"));
  EXPECT_EQ(VrPalette::palette("vaA"), nullptr);
  EXPECT_FALSE(vrapi::deletePalette("vaA"));
  EXPECT_TRUE(oneError("rCouldNotDeleteCollection vaA"));
  EXPECT_TRUE(vrapi::descriptions("vaA").empty());
  EXPECT_TRUE(oneError("rCouldNotFindCollection vaA"));
}

// ---------------------------------------------------------------------------------------------

TEST_F(VrapiDescriptions, CreatingATakenNameAddsASuffix) {
  EXPECT_EQ(vrapi::createDescription("vaC", "hair", "Spline", "Random", "Renderman", "Guides"),
            "hair");
  EXPECT_EQ(vrapi::createDescription("vaC", "hair", "Card", "Uniform", "Renderman", "Attribute"),
            "hair1");
  EXPECT_EQ(vrapi::createDescription("vaC", "hair", "Spline", "Random", "Renderman", "Attribute"),
            "hair2");
  EXPECT_EQ(vrapi::descriptions("vaC"), (Names{"hair", "hair1", "hair2"}));
  EXPECT_TRUE(log.errors().empty());

  // The collection's name space replaces the description's.
  EXPECT_EQ(vrapi::createDescription("ns:vaC", "other:hair", "Spline", "Random", "Renderman",
                                     "Attribute"),
            "ns:hair");
}

TEST_F(VrapiDescriptions, CreateSetsTheActiveObjectsAndInterpolation) {
  ASSERT_EQ(vrapi::createDescription("vaC", "hair", "Spline", "Random", "Renderman", "Guides"),
            "hair");
  EXPECT_EQ(vrapi::getActive("vaC", "hair", "Primitive"), "SplinePrimitive");
  EXPECT_EQ(vrapi::getActive("vaC", "hair", "Generator"), "RandomGenerator");
  EXPECT_EQ(vrapi::getActive("vaC", "hair", "Renderer"), "RendermanRenderer");
  EXPECT_EQ(vrapi::getActive("vaC", "hair", "Previewer"), "GLRenderer");
  EXPECT_EQ(vrapi::getAttr("iMethod", "vaC", "hair", "SplinePrimitive"), "1");

  EXPECT_EQ(vrapi::objects("vaC", "hair", true),
            (Names{"SplinePrimitive", "RandomGenerator", "RendermanRenderer", "GLRenderer"}));
  // After a spare object is made, only the full list shows it.
  ASSERT_TRUE(vrapi::setActive("vaC", "hair", "UniformGenerator", false));
  Names all = vrapi::objects("vaC", "hair", false);
  std::sort(all.begin(), all.end());
  EXPECT_EQ(all, (Names{"GLRenderer", "RandomGenerator", "RendermanRenderer", "SplinePrimitive",
                        "UniformGenerator"}));
  EXPECT_EQ(vrapi::objects("vaC", "hair", true),
            (Names{"SplinePrimitive", "UniformGenerator", "RendermanRenderer", "GLRenderer"}));
  EXPECT_TRUE(log.errors().empty());

  // A GL renderer that is also the previewer is listed once.
  ASSERT_EQ(vrapi::createDescription("vaC", "fur", "Card", "Uniform", "GL", "Attribute"), "fur");
  EXPECT_EQ(vrapi::objects("vaC", "fur", true),
            (Names{"CardPrimitive", "UniformGenerator", "GLRenderer"}));
  EXPECT_EQ(vrapi::getAttr("iMethod", "vaC", "fur", "CardPrimitive"), "0");

  EXPECT_TRUE(vrapi::objects("vaC", "gone", false).empty());
  EXPECT_TRUE(oneError("rCouldNotGetObjects vaC gone"));
}

TEST_F(VrapiDescriptions, CreateFailuresReportTheirKeyAndKeepNoDescription) {
  EXPECT_EQ(vrapi::createDescription("", "hair", "Spline", "Random", "Renderman", "Attribute"), "");
  EXPECT_TRUE(oneError("rNoPaletteName hair Spline Random Renderman Attribute"));
  EXPECT_EQ(vrapi::createDescription("vaE", "", "Spline", "Random", "Renderman", "Attribute"), "");
  EXPECT_TRUE(oneError("rNoDescriptionName vaE Spline Random Renderman Attribute"));
  EXPECT_EQ(VrPalette::palette("vaE"), nullptr);

  EXPECT_EQ(vrapi::createDescription("vaE", "hair", "Bogus", "Random", "Renderman", "Attribute"), "");
  EXPECT_TRUE(lastError("rInvalidPrimitive vaE hair Bogus Random Renderman Attribute"));
  EXPECT_EQ(vrapi::createDescription("vaE", "hair", "Spline", "Bogus", "Renderman", "Attribute"), "");
  EXPECT_TRUE(lastError("rInvalidGenerator vaE hair Spline Bogus Renderman Attribute"));
  EXPECT_EQ(vrapi::createDescription("vaE", "hair", "Spline", "Random", "Bogus", "Attribute"), "");
  EXPECT_TRUE(lastError("rInvalidRenderer vaE hair Spline Random Bogus Attribute"));
  EXPECT_EQ(vrapi::createDescription("vaE", "hair", "Spline", "Random", "Renderman", "Weights"), "");
  EXPECT_TRUE(oneError("rInvalidInterpolation vaE hair Spline Random Renderman Weights"));

  // The collection was made on the way; the failed descriptions are gone again.
  ASSERT_NE(VrPalette::palette("vaE"), nullptr);
  EXPECT_TRUE(vrapi::descriptions("vaE").empty());
  EXPECT_EQ(vrapi::createDescription("vaE", "hair", "Spline", "Random", "Renderman", "Attribute"),
            "hair");
}

TEST_F(VrapiDescriptions, SetActiveRefusesWrongRenderersWithTheirKeys) {
  ASSERT_EQ(vrapi::createDescription("vaF", "hair", "Spline", "Random", "Renderman", "Attribute"),
            "hair");
  EXPECT_FALSE(vrapi::setActive("vaF", "hair", "GLRenderer", false));
  EXPECT_TRUE(oneError("rRendererMustBeGL vaF hair GLRenderer"));
  EXPECT_EQ(vrapi::getActive("vaF", "hair", "Renderer"), "RendermanRenderer");
  EXPECT_FALSE(vrapi::setActive("vaF", "hair", "FileRenderer", true));
  EXPECT_TRUE(oneError("rPreviewerMustBeGL vaF hair FileRenderer"));

  EXPECT_TRUE(vrapi::setActive("vaF", "hair", "GLRenderer", true));
  EXPECT_TRUE(vrapi::setActive("vaF", "hair", "FileRenderer", false));
  EXPECT_TRUE(vrapi::setActive("vaF", "hair", "CardPrimitive", false));
  EXPECT_EQ(vrapi::getActive("vaF", "hair", "Renderer"), "FileRenderer");
  EXPECT_EQ(vrapi::getActive("vaF", "hair", "Previewer"), "GLRenderer");
  EXPECT_EQ(vrapi::getActive("vaF", "hair", "Primitive"), "CardPrimitive");
  EXPECT_TRUE(log.errors().empty());

  EXPECT_FALSE(vrapi::setActive("vaF", "hair", "BogusPrimitive", false));
  EXPECT_TRUE(lastError("rCouldNotSetActiveOfType vaF hair BogusPrimitive"));
  EXPECT_EQ(vrapi::getActive("vaF", "hair", "Primitive"), "CardPrimitive");
  EXPECT_FALSE(vrapi::setActive("vaF", "hair", "ns:", false));
  EXPECT_TRUE(oneError("rCouldNotSetActiveType vaF hair ns:"));
  EXPECT_FALSE(vrapi::setActive("vaF", "hair", "", false));
  EXPECT_TRUE(oneError("rCouldNotSetActiveType vaF hair"));
  EXPECT_FALSE(vrapi::setActive("vaF", "gone", "CardPrimitive", false));
  EXPECT_TRUE(oneError("rCouldNotSetActiveType vaF gone CardPrimitive"));

  EXPECT_EQ(vrapi::getActive("vaF", "hair", "Shader"), "");
  EXPECT_TRUE(oneError("rUnknownTypeGiven vaF hair Shader"));
  EXPECT_EQ(vrapi::getActive("vaF", "gone", "Primitive"), "");
  EXPECT_TRUE(oneError("rCouldNotFindActiveType vaF gone Primitive"));
}

TEST_F(VrapiDescriptions, DeleteRemovesFromTheCollection) {
  ASSERT_EQ(vrapi::createDescription("vaF", "hair", "Spline", "Random", "Renderman", "Attribute"),
            "hair");
  ASSERT_EQ(vrapi::createDescription("vaF", "fur", "Spline", "Random", "Renderman", "Attribute"),
            "fur");
  EXPECT_TRUE(vrapi::deleteDescription("vaF", "hair"));
  EXPECT_EQ(vrapi::descriptions("vaF"), Names{"fur"});
  EXPECT_FALSE(vrapi::deleteDescription("vaF", "hair"));
  EXPECT_TRUE(oneError("rCouldNotDeleteDescription vaF hair"));
  EXPECT_FALSE(vrapi::deleteDescription("gone", "fur"));
  EXPECT_TRUE(oneError("rCouldNotDeleteDescription gone fur"));
}

// ---------------------------------------------------------------------------------------------

TEST_F(VrapiMessages, LevelsAreLimitedToFiveAndOtherKindsAreZero) {
  struct Restore {
    unsigned debug = VRDebugLevel, warning = VRWarningLevel, stats = VRStatsLevel;
    bool quit = VRQuitOnError;
    ~Restore() {
      VRDebugLevel = debug;
      VRWarningLevel = warning;
      VRStatsLevel = stats;
      VRQuitOnError = quit;
    }
  } restore;

  EXPECT_TRUE(vrapi::setMessageLevel("debug", 9));
  EXPECT_EQ(VRDebugLevel, 5u);
  EXPECT_EQ(vrapi::getMessageLevel("debug"), 5);
  VRDebugLevel = restore.debug;

  EXPECT_TRUE(vrapi::setMessageLevel("warning", 3));
  EXPECT_EQ(VRWarningLevel, 3u);
  EXPECT_EQ(vrapi::getMessageLevel("warning"), 3);
  EXPECT_TRUE(vrapi::setMessageLevel("stats", -2));
  EXPECT_EQ(vrapi::getMessageLevel("stats"), 0);
  EXPECT_TRUE(vrapi::setMessageLevel("stats", 4));
  EXPECT_EQ(VRStatsLevel, 4u);

  EXPECT_TRUE(vrapi::setMessageLevel("quitOnError", 7));
  EXPECT_TRUE(VRQuitOnError);
  EXPECT_EQ(vrapi::getMessageLevel("quitOnError"), 1);
  EXPECT_TRUE(vrapi::setMessageLevel("quitOnError", 0));
  EXPECT_EQ(vrapi::getMessageLevel("quitOnError"), 0);

  EXPECT_EQ(vrapi::getMessageLevel("other"), 0);
  EXPECT_FALSE(vrapi::setMessageLevel("other", 2));
}

// ---------------------------------------------------------------------------------------------

TEST_F(VrapiAttributes, GetObjectResolvesTheTripleWithExactErrors) {
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  VrPalette* groom = VrPalette::palette("groom");
  EXPECT_EQ(vrutil::getObject("groom", "", ""), groom);
  EXPECT_EQ(vrutil::getObject("groom", "", "RandomGenerator"), groom);  // no description: collection
  EXPECT_EQ(vrutil::getObject("groom", "scalp", ""), groom->description("scalp"));
  EXPECT_EQ(vrutil::getObject("groom", "scalp", "RandomGenerator")->typeName(), "RandomGenerator");
  EXPECT_EQ(vrutil::getObject("groom", "scalp", "Clumping")->typeName(), "ClumpingFXModule");
  EXPECT_EQ(vrutil::getObject("groom", "scalp", "groom"), groom);
  EXPECT_TRUE(log.errors().empty());

  EXPECT_EQ(vrutil::getObject("nope", "scalp", "Clumping"), nullptr);
  EXPECT_TRUE(oneError("Vorn collection not found. [nope]"));
  EXPECT_EQ(vrutil::getObject("groom", "nope", "Clumping"), nullptr);
  EXPECT_TRUE(oneError("Vorn description not found. [nope]"));
  EXPECT_EQ(vrutil::getObject("groom", "brows", "Clumping"), nullptr);  // modules of scalp only
  EXPECT_TRUE(oneError("Object not found: [Clumping]"));
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

  EXPECT_EQ(vrapi::attrs("groom", "scalp", "SplinePrimitive"), (Names{"length", "width", "iMethod"}));
  EXPECT_EQ(vrapi::customAttrs("groom", "scalp", "SplinePrimitive"), Names{"custom_color_tint"});
  EXPECT_EQ(vrapi::attrs("groom", "scalp", "Cut"), (Names{"name", "active", "mask"}));
  EXPECT_TRUE(log.errors().empty());

  EXPECT_TRUE(vrapi::attrs("groom", "scalp", "Nope").empty());
  EXPECT_TRUE(oneError("Object not found: [Nope]"));
  EXPECT_TRUE(vrapi::customAttrs("nope", "", "").empty());
  EXPECT_TRUE(oneError("Vorn collection not found. [nope]"));
}

TEST_F(VrapiAttributes, GetSetAndTexturesGoThroughTheNames) {
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  EXPECT_TRUE(vrapi::attrExists("density", "groom", "scalp", "RandomGenerator"));
  EXPECT_FALSE(vrapi::attrExists("colour", "groom", "scalp", "RandomGenerator"));
  EXPECT_TRUE(log.errors().empty());
  EXPECT_FALSE(vrapi::attrExists("density", "groom", "scalp", "Bogus"));
  EXPECT_TRUE(oneError("rCallToAttrExists density groom scalp Bogus"));

  EXPECT_EQ(vrutil::getTexture("density", "groom", "scalp", "RandomGenerator"), "${DESC}/density");
  EXPECT_EQ(vrapi::getAttr("density", "groom", "scalp", "RandomGenerator"), "800.0");
  EXPECT_EQ(vrapi::getAttr("minDensity", "groom", "scalp", ""), "0.05");
  EXPECT_TRUE(vrapi::setAttr("density", "900.0", "groom", "scalp", "RandomGenerator"));
  // A new value replaces the linked texture.
  EXPECT_EQ(vrutil::getTexture("density", "groom", "scalp", "RandomGenerator"), "");
  EXPECT_EQ(vrapi::getAttr("density", "groom", "scalp", "RandomGenerator"), "900.0");
  // The description parses what it is given.
  EXPECT_TRUE(vrapi::setAttr("minDensity", "2", "groom", "scalp", ""));
  EXPECT_EQ(VrPalette::palette("groom")->description("scalp")->lodMinDensity(), 1.0);
  // Only attributes the object has are set; a missing one reads empty, silently.
  EXPECT_FALSE(vrapi::setAttr("colour", "1", "groom", "scalp", "RandomGenerator"));
  EXPECT_EQ(vrapi::getAttr("colour", "groom", "scalp", "RandomGenerator"), "");
  EXPECT_FALSE(vrapi::attrExists("colour", "groom", "scalp", "RandomGenerator"));
  EXPECT_TRUE(log.errors().empty());
  EXPECT_FALSE(vrapi::setAttr("density", "1", "groom", "scalp", "Bogus"));
  EXPECT_TRUE(oneError("Call to setAttr failed."));
  EXPECT_EQ(vrapi::getAttr("density", "groom", "gone", "RandomGenerator"), "");
  EXPECT_TRUE(oneError("Call to getAttr failed."));

  EXPECT_EQ(vrutil::getTexture("mask", "groom", "scalp", "Clumping"), "${DESC}/clumpMask");
  EXPECT_TRUE(vrapi::setTextureAttr("mask", "${DESC}/m", "groom", "scalp", "RandomGenerator"));
  EXPECT_EQ(vrutil::getTexture("mask", "groom", "scalp", "RandomGenerator"), "${DESC}/m");
  EXPECT_FALSE(vrapi::setTextureAttr("colour", "${DESC}/c", "groom", "scalp", "RandomGenerator"));
  EXPECT_TRUE(log.errors().empty());
  EXPECT_FALSE(vrapi::setTextureAttr("mask", "x", "groom", "scalp", "Bogus"));
  EXPECT_TRUE(oneError("Call to setTexture failed."));
  EXPECT_EQ(vrutil::getTexture("mask", "nope", "scalp", "Clumping"), "");
  EXPECT_TRUE(oneError("Call to getTexture failed."));
}

TEST_F(VrapiAttributes, ThreadingPseudoAttributesNeedNoObject) {
  struct Restore {
    bool all = VrTaskManager::multithreadingEnabled();
    bool patch = VrTaskManager::patchMultithreading();
    bool collision = VrTaskManager::collisionMultithreading();
    ~Restore() {
      VrTaskManager::setMultithreading(all);
      VrTaskManager::setPatchMultithreading(patch);
      VrTaskManager::setCollisionMultithreading(collision);
    }
  } restore;

  EXPECT_TRUE(vrapi::setAttr("Multithreading", "1", "", "", ""));
  EXPECT_EQ(vrapi::getAttr("Multithreading", "", "", ""), "1");
  EXPECT_EQ(vrapi::getAttr("MultithreadingPatch", "", "", ""), "1");
  EXPECT_EQ(vrapi::getAttr("MultithreadingCollision", "nope", "", ""), "1");
  EXPECT_TRUE(vrapi::setAttr("MultithreadingCollision", "0", "", "", ""));
  EXPECT_FALSE(VrTaskManager::collisionMultithreading());
  EXPECT_TRUE(VrTaskManager::patchMultithreading());
  EXPECT_TRUE(VrTaskManager::multithreadingEnabled());
  // Only 1 means on.
  EXPECT_TRUE(vrapi::setAttr("Multithreading", "2", "", "", ""));
  EXPECT_FALSE(VrTaskManager::multithreadingEnabled());
  EXPECT_FALSE(VrTaskManager::patchMultithreading());
  EXPECT_TRUE(vrapi::setAttr("MultithreadingPatch", "1", "", "", ""));
  EXPECT_EQ(vrapi::getAttr("MultithreadingPatch", "", "", ""), "1");
  EXPECT_EQ(vrapi::getAttr("Multithreading", "", "", ""), "0");
  EXPECT_TRUE(log.errors().empty());
}

TEST_F(VrapiAttributes, CustomAttributesAreAddedAndRemoved) {
  ASSERT_EQ(vrapi::createDescription("vaG", "hair", "Card", "Random", "Renderman", "Attribute"),
            "hair");
  // On the collection: a global expression.
  EXPECT_TRUE(vrapi::addCustomAttr("custom_float_spread", "vaG", "", ""));
  EXPECT_EQ(vrapi::getAttr("custom_float_spread", "vaG", "", ""), "0.0");
  EXPECT_TRUE(VrPalette::palette("vaG")->namedAttr("spread"));
  EXPECT_TRUE(log.errors().empty());
  EXPECT_FALSE(vrapi::addCustomAttr("custom_float_spread", "vaG", "", ""));
  EXPECT_TRUE(oneError("Call to addCustomAttr failed. custom_float_spread already exists. [vaG]"));

  EXPECT_TRUE(vrapi::addCustomAttr("custom_float_bend", "vaG", "hair", "CardPrimitive"));
  EXPECT_TRUE(vrapi::addCustomAttr("archive_vector_tint[1]", "vaG", "hair", "CardPrimitive"));
  EXPECT_EQ(vrapi::attrs("vaG", "hair", "CardPrimitive"), (Names{"iMethod", "archive_vector_tint[1]"}));
  EXPECT_EQ(vrapi::customAttrs("vaG", "hair", "CardPrimitive"),
            (Names{"custom_float_bend", "archive_vector_tint[1]"}));
  EXPECT_FALSE(vrapi::addCustomAttr("custom_float_bend", "vaG", "hair", "CardPrimitive"));
  EXPECT_TRUE(oneError("Call to addCustomAttr failed. custom_float_bend already exists. [CardPrimitive]"));

  EXPECT_FALSE(vrapi::addCustomAttr("spread", "vaG", "", ""));
  EXPECT_TRUE(oneError("Could not add custom attribute [spread]"));
  EXPECT_FALSE(vrapi::addCustomAttr("custom_", "vaG", "", ""));
  EXPECT_TRUE(oneError("Could not add custom attribute [custom_]"));
  EXPECT_FALSE(vrapi::addCustomAttr("custom_float_x", "vaG", "gone", ""));
  EXPECT_TRUE(oneError("Call to addCustomAttr failed. [vaG, gone]"));
  EXPECT_FALSE(vrapi::addCustomAttr("custom_float_x", "vaG", "hair", "Nope"));
  EXPECT_TRUE(oneError("Call to addCustomAttr failed. [vaG, hair, Nope]"));

  EXPECT_TRUE(vrapi::remCustomAttr("custom_float_spread", "vaG", "", ""));
  EXPECT_FALSE(VrPalette::palette("vaG")->namedAttr("spread"));
  EXPECT_FALSE(vrapi::attrExists("custom_float_spread", "vaG", "", ""));
  EXPECT_TRUE(vrapi::remCustomAttr("archive_vector_tint[1]", "vaG", "hair", "CardPrimitive"));
  EXPECT_EQ(vrapi::allAttrs("vaG", "hair", "CardPrimitive"), (Names{"iMethod", "custom_float_bend"}));
  EXPECT_TRUE(log.errors().empty());
  EXPECT_FALSE(vrapi::remCustomAttr("custom_float_spread", "vaG", "", ""));
  EXPECT_TRUE(oneError("Could not remove custom attribute [custom_float_spread]"));
  EXPECT_FALSE(vrapi::remCustomAttr("name", "vaG", "", ""));
  EXPECT_TRUE(oneError("Could not remove custom attribute [name]"));
  EXPECT_EQ(vrapi::getAttr("name", "vaG", "", ""), "vaG");
  EXPECT_FALSE(vrapi::remCustomAttr("custom_float_bend", "vaG", "gone", "CardPrimitive"));
  EXPECT_TRUE(oneError("Could not remove custom attribute [custom_float_bend]"));
}

TEST_F(VrapiAttributes, ValuesFromAFileAndTheModuleList) {
  EXPECT_EQ(vrapi::getAttrFromFile("density", "RandomGenerator", groomFile()), Names{"800.0"});
  EXPECT_EQ(vrapi::getAttrFromFile("mask", "Clumping", groomFile()),
            Names{"map('${DESC}/clumpMask')"});
  EXPECT_EQ(vrapi::getAttrFromFile("name", "Description", groomFile()), (Names{"scalp", "brows"}));
  EXPECT_EQ(VrPalette::palette("groom"), nullptr);  // nothing read is kept

  const Names modules = vrapi::availableModules();
  EXPECT_TRUE(std::is_sorted(modules.begin(), modules.end()));
  for (const char* name : {"SplinePrimitive", "RandomGenerator", "GLRenderer", "NoiseFXModule"})
    EXPECT_NE(std::find(modules.begin(), modules.end(), name), modules.end()) << name;
}

// ---------------------------------------------------------------------------------------------

TEST_F(VrapiFXModules, AddMoveRemoveKeepTheStackInOrder) {
  ASSERT_EQ(vrapi::createDescription("vaH", "hair", "Spline", "Random", "Renderman", "Attribute"),
            "hair");
  EXPECT_EQ(vrapi::addFXModule("vaH", "hair", "NoiseFXModule", "noiseA"), "noiseA");
  EXPECT_EQ(vrapi::addFXModule("vaH", "hair", "CutFXModule", "cutA"), "cutA");
  EXPECT_EQ(vrapi::addFXModule("vaH", "hair", "ClumpingFXModule", "clumpA"), "clumpA");
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), (Names{"noiseA", "cutA", "clumpA"}));
  EXPECT_EQ(vrapi::fxModuleType("vaH", "hair", "cutA"), "CutFXModule");
  EXPECT_EQ(vrapi::getAttr("name", "vaH", "hair", "clumpA"), "clumpA");

  auto indexOf = [](const std::string& module) {
    return static_cast<VrFXModule*>(vrutil::getObject("vaH", "hair", module))->moduleIndex();
  };
  EXPECT_TRUE(vrapi::moveFXModule("vaH", "hair", "clumpA", -1));
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), (Names{"noiseA", "clumpA", "cutA"}));
  EXPECT_EQ(indexOf("clumpA"), 1);
  EXPECT_EQ(indexOf("cutA"), 2);
  // Steps past either end stop there.
  EXPECT_TRUE(vrapi::moveFXModule("vaH", "hair", "noiseA", 5));
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), (Names{"clumpA", "cutA", "noiseA"}));
  EXPECT_TRUE(vrapi::moveFXModule("vaH", "hair", "noiseA", -10));
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), (Names{"noiseA", "clumpA", "cutA"}));
  EXPECT_EQ(indexOf("noiseA"), 0);
  EXPECT_TRUE(vrapi::moveFXModule("vaH", "hair", "cutA", 0));
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), (Names{"noiseA", "clumpA", "cutA"}));
  EXPECT_TRUE(log.errors().empty());

  EXPECT_TRUE(vrapi::removeFXModule("vaH", "hair", "clumpA"));
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), (Names{"noiseA", "cutA"}));
  EXPECT_EQ(indexOf("cutA"), 1);
  EXPECT_FALSE(vrapi::removeFXModule("vaH", "hair", "clumpA"));
  EXPECT_TRUE(oneError("rFxModuleNotFound vaH hair clumpA"));
}

TEST_F(VrapiFXModules, FailuresReportTheirKeys) {
  ASSERT_EQ(vrapi::createDescription("vaH", "hair", "Spline", "Random", "Renderman", "Attribute"),
            "hair");
  ASSERT_EQ(vrapi::addFXModule("vaH", "hair", "WindFXModule", "windA"), "windA");
  EXPECT_EQ(vrapi::addFXModule("vaH", "hair", "SplinePrimitive", "x"), "");
  EXPECT_TRUE(lastError("rCouldNotAddModifierType vaH hair SplinePrimitive x"));
  EXPECT_EQ(vrapi::addFXModule("vaH", "gone", "WindFXModule", "x"), "");
  EXPECT_TRUE(oneError("rCouldNotAddModifierType vaH gone WindFXModule x"));
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), Names{"windA"});

  EXPECT_EQ(vrapi::fxModuleType("vaH", "hair", "nope"), "");
  EXPECT_TRUE(oneError("rCouldNotFindModifierType vaH hair nope"));
  EXPECT_TRUE(vrapi::fxModules("vaH", "gone").empty());
  EXPECT_TRUE(oneError("rCouldNotFindFxModules vaH gone"));
  EXPECT_FALSE(vrapi::moveFXModule("vaH", "hair", "nope", 1));
  EXPECT_TRUE(oneError("rFxModuleNotFoundMove vaH hair nope"));
  EXPECT_FALSE(vrapi::moveFXModule("vaH", "gone", "windA", 1));
  EXPECT_TRUE(oneError("rCouldNotMoveModifierType vaH gone windA"));
  EXPECT_FALSE(vrapi::removeFXModule("nope", "hair", "windA"));
  EXPECT_TRUE(oneError("rCouldNotRemoveModifierType nope hair windA"));
  EXPECT_EQ(vrapi::fxModules("vaH", "hair"), Names{"windA"});
}

// ---------------------------------------------------------------------------------------------

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
  EXPECT_TRUE(log.errors().empty());
}

TEST_F(VrapiGeometry, MissingDescriptionsAndPatchesReportTheirKeys) {
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  EXPECT_TRUE(vrapi::boundGeometry("groom", "nope").empty());
  EXPECT_TRUE(oneError("rCouldNotReturnBoundGeo groom nope"));
  EXPECT_TRUE(vrapi::boundFaces("groom", "nope", "scalpShape", false).empty());
  EXPECT_TRUE(oneError("rCouldNotReturnBoundFace groom nope scalpShape"));
  EXPECT_TRUE(vrapi::boundFaces("groom", "scalp", "browShape", false).empty());
  EXPECT_TRUE(oneError("rCouldNotReturnBoundFaceNotFound groom scalp browShape"));
  EXPECT_TRUE(vrapi::culledPrimPatches("nope", "scalp").empty());
  EXPECT_TRUE(oneError("rCouldNotReturnPatches nope scalp"));
  EXPECT_TRUE(vrapi::culledPrimFaces("groom", "nope", "scalpShape").empty());
  EXPECT_TRUE(oneError("rCouldNotReturnPatchIds groom nope scalpShape"));
  EXPECT_TRUE(vrapi::culledPrimFaces("groom", "scalp", "nope").empty());
  EXPECT_TRUE(oneError("rCouldNotReturnPatchNotFound groom scalp nope"));
  EXPECT_TRUE(vrapi::culledPrims("groom", "nope", "scalpShape", 1).empty());
  EXPECT_TRUE(oneError("rCouldNotReturnCulledPrims groom nope scalpShape"));
  EXPECT_TRUE(vrapi::culledPrims("groom", "scalp", "nope", 1).empty());
  EXPECT_TRUE(oneError("rCouldNotReturnPatchNotFound groom scalp nope"));
}

// ---------------------------------------------------------------------------------------------

TEST_F(VrapiFiles, ImportPaletteRefusesADuplicateAndChangesNothing) {
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  VrPalette* first = VrPalette::palette("groom");
  ASSERT_TRUE(vrapi::setAttr("density", "123.0", "groom", "scalp", "RandomGenerator"));
  const size_t count = vrapi::palettes().size();

  EXPECT_EQ(vrapi::importPalette(groomFile(), "", ""), "");
  EXPECT_TRUE(oneError("rTriedToImportDuplicate " + groomFile()));
  EXPECT_EQ(vrapi::palettes().size(), count);
  EXPECT_EQ(VrPalette::palette("groom"), first);
  EXPECT_EQ(vrapi::descriptions("groom"), (Names{"scalp", "brows"}));
  EXPECT_EQ(vrapi::getAttr("density", "groom", "scalp", "RandomGenerator"), "123.0");
  EXPECT_EQ(vrapi::fxModules("groom", "scalp"), (Names{"Clumping", "Cut"}));

  // In a name space the same file is another collection.
  EXPECT_EQ(vrapi::importPalette(groomFile(), "", "shot"), "shot:groom");
  EXPECT_EQ(vrapi::descriptions("shot:groom"), (Names{"shot:scalp", "shot:brows"}));
  EXPECT_EQ(vrapi::palettes().size(), count + 1);
  EXPECT_TRUE(log.errors().empty());
}

TEST_F(VrapiFiles, ImportPaletteFailures) {
  const size_t count = vrapi::palettes().size();
  EXPECT_EQ(vrapi::importPalette("", "", "ns"), "");
  EXPECT_TRUE(oneError("rSpecifyFileName ns"));
  const std::string missing = groomFile() + ".missing";
  EXPECT_EQ(vrapi::importPalette(missing, "", ""), "");
  EXPECT_TRUE(lastError("rFailedToImportCollectionFromFile " + missing));
  // A delta file that cannot be applied: the collection read is deleted again.
  EXPECT_EQ(vrapi::importPalette(hairsFile(), "hairs.delta", ""), "");
  EXPECT_TRUE(lastError("rFailedToApplyDelta " + hairsFile() + " hairs.delta"));
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
  EXPECT_EQ(vrapi::getAttr("density", "groom", "scalp", "RandomGenerator"), "800.0");
  EXPECT_EQ(vrapi::getActive("groom", "brows", "Primitive"), "CardPrimitive");
  EXPECT_EQ(vrapi::fxModules("groom", "scalp"), (Names{"Clumping", "Cut"}));
  EXPECT_EQ(vrapi::culledPrims("groom", "scalp", "scalpShape", 1), (Ints{7, 9}));
  EXPECT_EQ(vrapi::getAttr("custom_float_globalLength", "groom", "", ""), "2.5*rand()");
  EXPECT_EQ(vrutil::getTexture("density", "groom", "scalp", "RandomGenerator"), "${DESC}/density");
  EXPECT_TRUE(log.errors().empty());

  EXPECT_FALSE(vrapi::exportPalette("groom", ""));
  EXPECT_TRUE(oneError("rYouMustSpecifyAFileName groom"));
  EXPECT_FALSE(vrapi::exportPalette("nope", first));
  EXPECT_TRUE(oneError("rCouldNotExportCollection nope " + first));
}

TEST_F(VrapiFiles, DescriptionRoundTripsThroughAFile) {
  vrtest::TempDir dir;
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  const std::string file = dir.file("scalp.vorn");
  ASSERT_TRUE(vrapi::exportDescription("groom", "scalp", file, true));

  // Into the same collection the name is made unique.
  EXPECT_EQ(vrapi::importDescription("groom", file), "scalp1");
  EXPECT_EQ(vrapi::getActive("groom", "scalp1", "Previewer"), "GLRenderer");
  EXPECT_EQ(vrapi::fxModules("groom", "scalp1"), (Names{"Clumping", "Cut"}));
  EXPECT_EQ(vrapi::getAttr("density", "groom", "scalp1", "RandomGenerator"), "800.0");
  // Into another collection it keeps its name and brings the global expression it calls.
  ASSERT_TRUE(vrapi::createPalette("vaI"));
  EXPECT_EQ(vrapi::importDescription("vaI", file), "scalp");
  EXPECT_EQ(vrapi::getAttr("custom_float_globalLength", "vaI", "", ""), "2.5*rand()");
  EXPECT_EQ(vrapi::getAttr("minDensity", "vaI", "scalp", ""), "0.05");
  EXPECT_TRUE(log.errors().empty());

  EXPECT_EQ(vrapi::importDescription("groom", ""), "");
  EXPECT_TRUE(oneError("rSpecifyFileNameError groom"));
  EXPECT_EQ(vrapi::importDescription("nope", file), "");
  EXPECT_TRUE(oneError("rCouldNotImportDescription nope " + file));
  const std::string missing = dir.file("missing.vorn");
  EXPECT_EQ(vrapi::importDescription("groom", missing), "");
  EXPECT_TRUE(lastError("rFailedToImportDescription groom " + missing));
  EXPECT_FALSE(vrapi::exportDescription("groom", "scalp", "", false));
  EXPECT_TRUE(oneError("rSpecifyFileNameExportDesc groom scalp"));
  EXPECT_FALSE(vrapi::exportDescription("groom", "nope", file, false));
  EXPECT_TRUE(oneError("rCouldNotExportDesc groom nope " + file));
}

TEST_F(VrapiFiles, FXModuleRoundTripsThroughAFile) {
  vrtest::TempDir dir;
  ASSERT_EQ(vrapi::importPalette(groomFile(), "", ""), "groom");
  ASSERT_EQ(vrapi::createDescription("vaJ", "hair", "Spline", "Random", "Renderman", "Attribute"),
            "hair");
  const std::string file = dir.file("clump.vorn");
  ASSERT_TRUE(vrapi::exportFXModule("groom", "scalp", "Clumping", file));
  EXPECT_EQ(vrapi::importFXModule("vaJ", "hair", file), "Clumping");
  EXPECT_EQ(vrapi::fxModules("vaJ", "hair"), Names{"Clumping"});
  EXPECT_EQ(vrapi::fxModuleType("vaJ", "hair", "Clumping"), "ClumpingFXModule");
  EXPECT_EQ(vrapi::getAttr("mask", "vaJ", "hair", "Clumping"), "map('${DESC}/clumpMask')");
  EXPECT_TRUE(log.errors().empty());

  EXPECT_FALSE(vrapi::exportFXModule("groom", "scalp", "Clumping", ""));
  EXPECT_TRUE(oneError("rModifierExportFileName groom scalp Clumping"));
  EXPECT_FALSE(vrapi::exportFXModule("groom", "scalp", "Noise", file));
  EXPECT_TRUE(oneError("rCouldNotFindModifier groom scalp Noise " + file));
  EXPECT_EQ(vrapi::importFXModule("vaJ", "hair", ""), "");
  EXPECT_TRUE(oneError("rFileNameImportModifier vaJ hair"));
  EXPECT_EQ(vrapi::importFXModule("vaJ", "gone", file), "");
  EXPECT_TRUE(oneError("rCouldNotImportModifier vaJ gone " + file));
  EXPECT_EQ(vrapi::importFXModule("vaJ", "hair", groomFile()), "");
  EXPECT_TRUE(lastError("rCouldNotImportModifierFile vaJ hair " + groomFile()));
  EXPECT_EQ(vrapi::fxModules("vaJ", "hair"), Names{"Clumping"});
}

TEST_F(VrapiFiles, FindsFilesAlongTheCollectionDataPath) {
  vrtest::TempDir dir;
  dir.write("maps/density.ptx", "");
  ASSERT_EQ(vrapi::createDescription("vaK", "hair", "Spline", "Random", "Renderman", "Attribute"),
            "hair");
  ASSERT_TRUE(vrapi::setAttr("vrDataPath", "/nowhere/;" + dir.path(), "vaK", "", ""));
  EXPECT_EQ(vrapi::findFileInVrDataPath("maps/density.ptx", "", "vaK", "hair"),
            dir.file("maps/density.ptx"));
  EXPECT_EQ(vrapi::findFileInVrDataPath("maps/${DESC}.ptx", "", "vaK", "gone"), "");
  EXPECT_TRUE(oneError("rCouldNotFindFileInDataPath maps/${DESC}.ptx vaK gone"));
  EXPECT_EQ(vrapi::findFileInVrDataPath("maps/$g.ptx", "scalp", "vaK", "hair"), "");
  EXPECT_TRUE(oneError("rCouldNotFindFileInDataPath maps/$g.ptx scalp vaK hair"));
}

TEST_F(VrapiFiles, NameAndTextForwards) {
  EXPECT_EQ(vrapi::stripNameSpace("shot:hair"), "hair");
  EXPECT_EQ(vrapi::objNameSpace("shot:hair"), "shot:");
  EXPECT_EQ(vrapi::objBaseNameSpace("shot:hair"), "shot");
  EXPECT_EQ(vrapi::prepForAttribute("a\nb\tc"), "a\\nb\\tc");
  EXPECT_EQ(vrapi::prepForEditor("a\\nb"), "a\nb");
  EXPECT_EQ(vrapi::fileCleanup("\"/maps/old/../new\""), "/maps/new");
}
