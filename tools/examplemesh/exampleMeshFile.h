#pragma once
// The file every example mesh generator writes: one mesh object, one sample at frame 1 of 24
// per second, and a line on standard output saying what was written.

#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "io/alembic/VrAbcTimeSampling.h"

#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

inline bool writeExampleMesh(const std::string& path, const std::string& application, const std::string& object,
                             VrAbcMeshWriter::Kind kind, const std::vector<float>& points,
                             const std::vector<int32_t>& counts, const std::vector<int32_t>& indices) {
  VrAbcArchiveWriter writer;
  VrAbcArchiveWriter::Options options;
  options.applicationName = application;
  options.framesPerSecond = 24.0;
  if (!writer.open(path, options)) return false;
  const uint32_t sampling = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0 / 24.0));
  VrAbcMeshWriter mesh;
  if (!mesh.create(writer.top(), object, kind, sampling)) return false;
  VrAbcMeshWriter::Sample sample;
  sample.positions = points;
  sample.faceCounts = counts;
  sample.faceIndices = indices;
  if (!mesh.write(sample) || !writer.close()) return false;
  std::cout << path << ": " << counts.size() << " faces, " << points.size() / 3 << " points\n";
  return true;
}
