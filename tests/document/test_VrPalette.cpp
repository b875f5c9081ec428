#include "document/VrPalette.h"

#include "document/VrDescription.h"
#include "support/CaptureLogger.h"

#include <gtest/gtest.h>

#include <memory>

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
