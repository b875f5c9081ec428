#include "renderers/VrPatchFileRenderer.h"

#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "document/VrDescription.h"
#include "document/vrutilFiles.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <cstdio>
#include <mutex>

VrPatchFileRenderer::VrPatchFileRenderer(VrDescription* description, const std::string& defaultOutputDir)
    : VrRenderer(description) {
  setAttr("outputDir", defaultOutputDir, "string");
}

bool VrPatchFileRenderer::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                  const std::string& enumStrings) {
  if (VrRenderer::setAttr(name, value, type, enumStrings)) return true;
  if (name == "outputDir") {
    outDir = value;
    return true;
  }
  return false;
}

bool VrPatchFileRenderer::okToEmit(int sample, double, double) { return sample == 0; }

std::unique_ptr<VrRendererContext> VrPatchFileRenderer::newRendererContext() const {
  return std::make_unique<VrFileRendererContext>();
}

const std::unordered_map<std::string, int>& VrPatchFileRenderer::keyToId() const {
  static const std::unordered_map<std::string, int> none;
  if (writer) return writer->keyToId();
  return cachedWriter ? cachedWriter->keyToId() : none;
}

// ---------------------------------------------------------------------------------------------
// Opening and closing

void VrPatchFileRenderer::discardWriter() {
  if (writer) writer->discard();
  if (cachedWriter) cachedWriter->close();
  writer.reset();
  cachedWriter.reset();
  serialPosition.reset();
}

bool VrPatchFileRenderer::commitAndCloseWriter() {
  bool ok = true;
  if (writer) ok = writer->close();
  if (cachedWriter) ok = cachedWriter->commitAndClose() && ok;
  const bool wasOpen = writer || cachedWriter;
  writer.reset();
  cachedWriter.reset();
  serialPosition.reset();
  if (wasOpen && !ok) {
    VR_ERROR("Failed to close VPD file: " + path);
    setFailed();
  }
  return ok;
}

bool VrPatchFileRenderer::openWriter(const VrPatch& patch, bool cached) {
  if (!commitAndCloseWriter()) return false;
  openPatch = patch.name();
  path = outDir + vrutil::stripNameSpace(patch.name()) + fileSuffix();
  if (!vrutil::expandOutputFileName(path, patch.name(), description(), "", true)) {
    setFailed();
    return false;
  }
  Vpd::Header header = fileHeader(patch);
  header.faceIds = patch.faceIds();
  if (cached)
    cachedWriter = VpdFileCachedWriter::openWrite(path, header);
  else
    writer = VpdWriter::open(path, header);
  if (!writer && !cachedWriter) {
    VR_ERROR("Failed to open VPD file: " + path);
    setFailed();
    return false;
  }
  return true;
}

bool VrPatchFileRenderer::openCachedWriter(const VrPatch& patch) { return openWriter(patch, true); }

void VrPatchFileRenderer::initDescription() {
  VrRenderer::initDescription();
  failedFlag.store(false);
  openPatch.clear();
  discardWriter();
}

void VrPatchFileRenderer::finishDescription() {
  if (failed()) {
    discardWriter();
  } else {
    commitAndCloseWriter();
  }
  if (failed() && !path.empty()) std::remove(path.c_str());
  VrRenderer::finishDescription();
}

// ---------------------------------------------------------------------------------------------
// Faces

bool VrPatchFileRenderer::startFace(VpdFileCachedWriterContext& position, int face) {
  const bool started = writer ? writer->startFace(face) : cachedWriter->startFace(position, face);
  if (!started) {
    VR_ERROR("Failed to start a new face in VPD file: " + path);
    setFailed();
    return false;
  }
  if (!(writer ? writer->startBlock(0) : cachedWriter->startBlock(position, 0))) {
    VR_ERROR("Failed to start block in VPD file: " + path);
    setFailed();
    return false;
  }
  return true;
}

bool VrPatchFileRenderer::beginPatchFace(const std::vector<VrPatch*>& patches, int face) {
  VrRenderer::beginPatchFace(patches, face);
  if (failed() || patches.empty() || !patches[0]) return false;
  const VrPatch& patch = *patches[0];
  VR_DEBUG(3, vrmsg::CatRender, "begin patch:" + patch.name());
  if ((patch.name() != openPatch || (!writer && !cachedWriter)) && !openWriter(patch, false)) return false;
  return startFace(serialPosition, face);
}

bool VrPatchFileRenderer::beginPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches,
                                                   int face) {
  VrRenderer::beginPatchFaceInParallel(context, patches, face);
  auto* record = dynamic_cast<VrFileRendererContext*>(context.rendererContext());
  if (failed() || !record || patches.empty() || !patches[0]) return false;
  const VrPatch& patch = *patches[0];
  VR_DEBUG(3, vrmsg::CatRender, "begin patch:" + patch.name());
  {
    std::lock_guard<std::recursive_mutex> lock(reduceMutex());
    // Workers share one cached writer per patch; a streaming writer cannot take them.
    if ((patch.name() != openPatch || !cachedWriter) && !openCachedWriter(patch)) return false;
  }
  return startFace(record->writer, face);
}

void VrPatchFileRenderer::endPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches,
                                                 int face) {
  VrRenderer::endPatchFaceInParallel(context, patches, face);
  auto* record = dynamic_cast<VrFileRendererContext*>(context.rendererContext());
  std::lock_guard<std::recursive_mutex> lock(reduceMutex());
  if (record && cachedWriter) cachedWriter->finishFace(record->writer);
}

// ---------------------------------------------------------------------------------------------
// Records

void VrPatchFileRenderer::writeRecord(VrPrimitiveContext& context, double u, double v, VrRendererContext* record,
                                      VpdFileCachedWriterContext& position) {
  if (failed()) return;
  std::vector<float> values;
  SgBox3T<double> box;
  if (!recordValues(context, u, v, values, box)) {
    setFailed();
    return;
  }
  if (record)
    record->mergeEmittedBox(box);
  else
    mergeEmittedBox(box);
  const bool written =
      writer ? writer->writePrim(context.id(), values) : cachedWriter->writePrim(position, context.id(), values);
  if (!written) {
    VR_ERROR("Failed to write primitive in VPD file: " + path);
    setFailed();
    return;
  }
  if (record)
    record->incrEmitCount();
  else
    incrEmitCount();
}

void VrPatchFileRenderer::emitPrimitive(int sample, double u, double v, int, const std::vector<VrPatch*>&) {
  VrPrimitive* primitive = description() ? description()->activePrimitive() : nullptr;
  if (sample != 0 || !primitive || (!writer && !cachedWriter)) return;
  writeRecord(primitive->context(), u, v, nullptr, serialPosition);
}

void VrPatchFileRenderer::emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int,
                                                  const std::vector<VrPatch*>&) {
  auto* record = dynamic_cast<VrFileRendererContext*>(context.rendererContext());
  if (sample != 0 || !record || !cachedWriter) return;
  writeRecord(context, u, v, record, record->writer);
}
