#include "document/VrPalette.h"

#include "document/VrDescription.h"
#include "support/CaptureLogger.h"

#include <gtest/gtest.h>

#include <memory>

TEST(VrPalette, DefaultsAndAttributeOrder) {
  std::unique_ptr<VrPalette> pal(new VrPalette);
  EXPECT_EQ(pal->typeName(), "Palette");
  EXPECT_EQ(pal->attrNames(), (std::vector<std::string>{"name", "parent", "vrDataPath", "vrProjectPath", "vrDogTag"}));
  EXPECT_EQ(pal->framesPerSecond(), 24.0);
  EXPECT_EQ(pal->interpolation(), "none");
  EXPECT_EQ(pal->vrDataPathStr(), "Undefined/");
  EXPECT_EQ(VrPalette::palette("Unnamed"), pal.get());
  pal->setAttr("name", "groomA");
  EXPECT_EQ(VrPalette::palette("groomA"), pal.get());
  EXPECT_EQ(VrPalette::palette("Unnamed"), nullptr);
  pal.reset();
  EXPECT_EQ(VrPalette::palette("groomA"), nullptr);
}

TEST(VrPalette, RenameOntoATakenNameLeavesTheOtherRegistered) {
  auto first = std::make_unique<VrPalette>();
  first->setAttr("name", "taken");
  auto second = std::make_unique<VrPalette>();
  second->setAttr("name", "other");
  second->setAttr("name", "taken");
  EXPECT_EQ(second->name(), "taken");                   // it still works under its new name,
  EXPECT_EQ(VrPalette::palette("taken"), first.get());  // but the dictionary keeps the first
  EXPECT_EQ(VrPalette::palette("other"), nullptr);
  second.reset();  // destruction compares the entry: the first stays registered
  EXPECT_EQ(VrPalette::palette("taken"), first.get());
}

TEST(VrPalette, DataPathIsSplitAndNormalised) {
  VrPalette pal;
  pal.setAttr("vrDataPath", "a;b");
  EXPECT_EQ(pal.vrDataPath(), (std::vector<std::string>{"a/", "b/"}));
  EXPECT_EQ(pal.vrDataPathStr(), "a/;b/");
  pal.setAttr("vrDataPath", "C:\\maps\\ ; ${DESC}");
  EXPECT_EQ(pal.vrDataPath(), (std::vector<std::string>{"C:/maps/", "${DESC}"}));
  pal.setAttr("vrDataPath", "");
  EXPECT_TRUE(pal.vrDataPath().empty());
  EXPECT_EQ(pal.vrDataPathStr(), "");
}

TEST(VrPalette, OwnsDescriptionsAndSamples) {
  auto pal = std::make_unique<VrPalette>();
  auto* a = new VrDescription;
  auto* b = new VrDescription;
  EXPECT_TRUE(pal->addDescription(a));
  EXPECT_FALSE(pal->addDescription(a));
  EXPECT_TRUE(pal->addDescription(b));
  a->setAttr("name", "hair");
  EXPECT_EQ(pal->description("hair"), a);
  EXPECT_EQ(pal->description(1u), b);
  EXPECT_EQ(pal->description(2u), nullptr);
  EXPECT_EQ(a->palette(), pal.get());

  EXPECT_TRUE(pal->removeDescription("hair"));
  EXPECT_EQ(a->palette(), nullptr);
  EXPECT_FALSE(pal->removeDescription("hair"));
  delete a;  // released descriptions belong to the caller
  delete b;  // a held one releases itself
  EXPECT_EQ(pal->numDescriptions(), 0u);

  pal->addDescription(new VrDescription);
  pal->addSample(new VrPalette);
  EXPECT_EQ(pal->numSamples(), 1u);
  pal.reset();  // deletes the description and the sample; nothing is left behind for ASan
}

TEST(VrPalette, GlobalExpressionsAreCustomAttributes) {
  VrPalette pal;
  EXPECT_FALSE(pal.namedAttr("foo"));
  pal.setAttr("custom_float_foo", "$u");
  ASSERT_TRUE(pal.namedAttr("foo"));
  EXPECT_EQ(pal.namedAttr("foo")->expression(), "$u");
}
