// Writes the sphere of the speed scene, examples/sphere/sphere.abc: the UV sphere of uvSphere.h
// as a subdivision surface "sphereShape". One sample, at frame 1 of 24 per second.
//
//   vorn_make_example_sphere OUT.abc [segments rings]      (both default to 100: 10,000 faces)

#include "tools/examplemesh/exampleMeshFile.h"
#include "tools/examplemesh/uvSphere.h"

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <vector>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: vorn_make_example_sphere OUT.abc [segments rings]\n";
    return 2;
  }
  const int segments = argc > 3 ? std::atoi(argv[2]) : 100;
  const int rings = argc > 3 ? std::atoi(argv[3]) : 100;
  if (segments < 3 || rings < 2 || segments > 4000 || rings > 4000) {
    std::cerr << "vorn_make_example_sphere: segments must be 3 to 4000 and rings 2 to 4000\n";
    return 2;
  }
  std::vector<float> points;
  std::vector<int32_t> counts, indices;
  uvSphere(segments, rings, points, counts, indices);
  return writeExampleMesh(argv[1], "vorn_make_example_sphere", "sphereShape",
                          VrAbcMeshWriter::Kind::SubD, points, counts, indices) ? 0 : 1;
}
