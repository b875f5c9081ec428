#include "expressions/VrExpression.h"

#include "base/VrTaskManager.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"

#include <gtest/gtest.h>
#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <memory>
#include <vector>

namespace {

constexpr size_t locations = 100000;

// Location i: a spread of (u, v) over 64 faces.
void location(size_t i, double& u, double& v, int& face) {
  u = static_cast<double>(i % 317) / 317.0;
  v = static_cast<double>((i * 7) % 211) / 211.0;
  face = static_cast<int>(i % 64);
}

std::vector<SgVec3T<double>> evaluateAll(const std::vector<const VrExpression*>& expressions, int threads) {
  std::vector<SgVec3T<double>> results(locations * expressions.size());
  auto body = [&](const tbb::blocked_range<size_t>& range) {
    VrExpression::initTLS();
    for (size_t i = range.begin(); i != range.end(); ++i) {
      double u, v;
      int face;
      location(i, u, v, face);
      for (size_t e = 0; e < expressions.size(); ++e)
        results[i * expressions.size() + e] = expressions[e]->eval(u, v, face);
    }
  };
  if (threads == 1) {
    body(tbb::blocked_range<size_t>(0, locations));
    return results;
  }
  tbb::global_control allow(tbb::global_control::max_allowed_parallelism, static_cast<size_t>(threads));
  tbb::task_arena arena(threads);
  VrTaskManager::setSeExprMultithreading(true);
  arena.execute([&] { tbb::parallel_for(tbb::blocked_range<size_t>(0, locations, 512), body); });
  VrTaskManager::setSeExprMultithreading(false);
  return results;
}

}  // namespace

TEST(VrExpressionThreads, ResultsDoNotDependOnTheThreadCount) {
  std::unique_ptr<VrPalette> palette(new VrPalette);
  auto* description = new VrDescription;
  palette->addDescription(description);
  palette->setAttr("custom_float_jitter", "rand() * 0.1 + $v");
  palette->setFrame(3);
  VrExpression random("length", "SplinePrimitive", description, "rand() + rand(1, 2, 7)", "float");
  VrExpression noisy("width", "SplinePrimitive", description, "[noise(), noise($u * 4, $v * 4), $faceId]", "vector");
  VrExpression global("depth", "SplinePrimitive", description, "jitter() + frameArray(1, rand(), 2, rand())", "float");
  const std::vector<const VrExpression*> expressions{&random, &noisy, &global};
  for (const VrExpression* e : expressions) ASSERT_TRUE(e->isValid());

  const auto serial = evaluateAll(expressions, 1);
  for (int threads : {2, 8}) {
    const auto parallel = evaluateAll(expressions, threads);
    size_t mismatches = 0;
    for (size_t i = 0; i < serial.size(); ++i)
      if (!(parallel[i] == serial[i])) ++mismatches;
    EXPECT_EQ(mismatches, 0u) << threads << " threads";
  }
}
