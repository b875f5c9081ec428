// Writes the painted length map of the bundled example, examples/head/maps/scalpShape.ptx, with
// the library's Ptex writer: one 8-bit channel over the 192 faces of the scalp, painted in bands
// of four faces: 1.0 on faces 0-3, 8-11, ... and 0.25 on faces 4-7, 12-15, ... Each face is 4 by
// 4 texels.
//
//   vorn_make_example_length_map OUT.ptx

#include "io/ptex/VrPtexWriter.h"

#include <iostream>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: vorn_make_example_length_map OUT.ptx\n";
    return 2;
  }
  constexpr int faces = 192;
  VrPtexWriter::Options options;
  options.numFaces = faces;
  VrPtexWriter writer(argv[1], options);
  for (int f = 0; f < faces; ++f) {
    vrptex::FaceInfo info;
    info.res = vrptex::Res(2, 2);
    const std::vector<uint8_t> texels(16, (f / 4) % 2 == 0 ? 255 : 64);
    if (!writer.writeFace(f, info, texels.data())) return 1;
  }
  writer.metaData().setString("painter", "vorn_make_example_length_map");
  return writer.close() ? 0 : 1;
}
