#include <gtest/gtest.h>

#include "support/ExpectNear.h"

#include <cstdint>
#include <random>
#include <utility>

#include "geometry/SgBox3T.h"
#include "geometry/SgVec2T.h"
#include "geometry/SgVec3T.h"
#include "geometry/SgVec4T.h"
#include "geometry/SgXform3T.h"
#include "geometry/vrutilRandom.h"

using Vec = SgVec3T<double>;

namespace {
void expectNear(const Vec& a, const Vec& b, double eps = 1e-12) { vrtest::expectNear(a, b, eps); }
}  // namespace

TEST(SgVec, NormalizeAndArithmetic) {
  Vec v(3, 4, 0);
  EXPECT_DOUBLE_EQ(v.normalize(), 5.0);
  expectNear(v, Vec(0.6, 0.8, 0));
  Vec tiny(5e-7, 0, 5e-7);  // below 1e-6: becomes zero, answers 0
  EXPECT_EQ(tiny.normalize(), 0.0);
  EXPECT_EQ(tiny, Vec());
  SgVec2T<double> zero(1e-7, 0);
  EXPECT_EQ(zero.normalize(), 0.0);
  EXPECT_EQ(zero, SgVec2T<double>());

  const Vec a(1, 2, 3), b(4, 5, 6);
  EXPECT_EQ(b / 2.0, Vec(2, 2.5, 3));
  EXPECT_EQ(a.mul(b), Vec(4, 10, 18));
  EXPECT_EQ(a.cross(b), Vec(-3, 6, -3));
  EXPECT_DOUBLE_EQ(SgVec2T<double>(1, 2).dot(SgVec2T<double>(3, -1)), 1.0);
  EXPECT_FLOAT_EQ(SgVec4T<float>(1, 2, 3, 4).dot(SgVec4T<float>(1, 2, 3, 4)), 30.0f);
}

TEST(SgBox, CornersUnionContains) {
  const SgBox3T<double> none;
  EXPECT_FALSE(none.valid);
  EXPECT_FALSE(none.contains(Vec()));

  const auto box = SgBox3T<double>::fromCorners(Vec(0, 1, 2), Vec(1, 3, 5));
  EXPECT_EQ(box.size, Vec(1, 2, 3));
  EXPECT_EQ(box.maxCorner(), Vec(1, 3, 5));

  // A max corner below the min on an axis gives size 0 there, never a negative size.
  const auto flat = SgBox3T<double>::fromCorners(Vec(0, 0, 0), Vec(-1, 2, 2));
  EXPECT_TRUE(flat.valid);
  EXPECT_EQ(flat.size, Vec(0, 2, 2));

  const auto a = SgBox3T<double>::fromCorners(Vec(0, 0, 0), Vec(1, 1, 1));
  const auto b = SgBox3T<double>::fromCorners(Vec(2, -1, 0.5), Vec(3, 0.5, 0.75));
  const auto u = SgBox3T<double>::unionOf(a, b);
  EXPECT_EQ(u.min, Vec(0, -1, 0));
  EXPECT_EQ(u.maxCorner(), Vec(3, 1, 1));
  EXPECT_EQ(SgBox3T<double>::unionOf(SgBox3T<double>(), a), a);
  EXPECT_FALSE(SgBox3T<double>::unionOf(SgBox3T<double>(), SgBox3T<double>()).valid);

  EXPECT_TRUE(a.contains(Vec(1, 1, 1)));  // boundary counts
  EXPECT_FALSE(a.contains(Vec(1.0001, 0.5, 0.5)));
  EXPECT_TRUE(u.contains(b));
  EXPECT_FALSE(a.contains(u));

  SgBox3T<double> grown;
  grown.extend(Vec(1, 2, 3));
  grown.extend(Vec(-1, 4, 3));
  EXPECT_EQ(grown.min, Vec(-1, 2, 3));
  EXPECT_EQ(grown.size, Vec(2, 2, 0));
}

TEST(SgXform, RowVectorsTranslationAndRigidInverse) {
  // Quarter turn about z (x axis onto y) followed by a move of (10, 20, 30).
  const double values[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 10, 20, 30, 1};
  const SgXform3T<double> x(values);
  EXPECT_EQ(x.transformed(Vec(1, 2, 3)), Vec(8, 21, 33));
  EXPECT_EQ(x.transformed(Vec(1, 2, 3), true), Vec(-2, 1, 3));  // directions ignore translation
  expectNear(x.transformed(Vec(8, 21, 33), false, true), Vec(1, 2, 3));
  expectNear(x.transformed(Vec(-2, 1, 3), true, true), Vec(1, 2, 3));

  const SgXform3T<double> id = x * x.rigidInverse();
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) EXPECT_NEAR(id[r][c], r == c ? 1.0 : 0.0, 1e-12);

  // Composition applies the left matrix first.
  SgXform3T<double> move;
  move.setTranslation(Vec(0, 0, -30));
  EXPECT_EQ((x * move).transformed(Vec(1, 2, 3)), Vec(8, 21, 3));
}

TEST(PRNG, MatchesReferenceTwisterAndFold) {
  vrutil::PRNG r;
  EXPECT_EQ(r.random32(), 3499211612u);
  EXPECT_EQ(r.random32(), 581869302u);
  vrutil::PRNG ref;
  for (int i = 1; i < 10000; ++i) ref.random32();
  EXPECT_EQ(ref.random32(), 4123659995u);  // the 10000th output of the default seed

  EXPECT_EQ(vrutil::PRNG::fold(uint64_t{0}), 0xAAAAAAAAu);
  EXPECT_EQ(vrutil::PRNG::fold(uint64_t{0x100000001ull}), 0xAAAAAAAAu);
  EXPECT_EQ(vrutil::PRNG::fold(uint64_t{0x123456789ABCDEF0ull}), 0x22222222u);
  EXPECT_EQ(vrutil::PRNG::foldDouble(1.0), 0x3FF00000u ^ 0xAAAAAAAAu);

  // Folded seeds go into the standard seeding.
  vrutil::PRNG big(uint64_t{0x123456789ABCDEF0ull});
  std::mt19937 expected(0x22222222u);
  for (int i = 0; i < 700; ++i) ASSERT_EQ(big.random32(), expected()) << i;  // crosses one refill
  EXPECT_EQ(vrutil::PRNG(1.0).random32(), std::mt19937(0x3FF00000u ^ 0xAAAAAAAAu)());
  EXPECT_EQ(vrutil::PRNG(7).random32(), std::mt19937(7u ^ 0xAAAAAAAAu)());
}

TEST(PRNG, CopyAndMove) {
  vrutil::PRNG a(uint64_t{42});
  a.random32();
  vrutil::PRNG b = a;  // continues from the same place, independently
  EXPECT_EQ(a.random32(), b.random32());
  const uint32_t next = b.random32();
  vrutil::PRNG c = std::move(b);
  EXPECT_FALSE(b.isValid());
  EXPECT_EQ(b.random01(), 0.0);
  EXPECT_EQ(a.random32(), next);
  EXPECT_EQ(a.random32(), c.random32());
  c.seed32(5489u);
  EXPECT_EQ(c.random32(), 3499211612u);
}
