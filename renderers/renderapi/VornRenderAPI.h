#pragma once
// VornRenderAPI: the interface through which a renderer plug-in asks the library for primitives
// without knowing its document model. The plug-in gives one argument string and one callbacks
// object; the library imports (or reuses) a collection, finds a description and a patch, hands
// out faces with their bounding boxes, and delivers the primitives of a face as batches through
// `ProceduralCallbacks::flush`.
//
// This header stands alone: it includes no other header of the library, and every type in it is
// a plain abstract structure with a static factory, so that a host plug-in can include it by
// itself. The caller owns what a factory returns and destroys it with `delete`.
//
// Calling order:
//   1. `PatchRenderer::init(callbacks, args)`; null means failure (the reason went to the log).
//   2. `nextFace(bbox, face)` until it answers false. A face out of view comes with a zero box
//      and is to be skipped.
//   3. Per face of interest `FaceRenderer::init(patch, face, callbacks)` and `render()`, each
//      delivering a sequence of `flush` calls; or `ParallelRenderer::init(patch)`, `enqueue`
//      every face renderer, `setThreads`, `setGrain`, `run`.
//   4. Delete the face renderers, then the patch renderer.
//   5. After the last procedural of a frame, optionally `PatchRenderer::deleteTempRenderPalettes()`.
//
// Threads: every entry point of the three renderers, destructors included, takes one
// process-wide recursive lock (`RenderLock`), so the serial path runs one call at a time. Only
// `ParallelRenderer::run` works on several threads; it holds the lock for the whole run, and
// `flush` is then called from worker threads (one batch per worker at a time, never the same
// batch twice), so a callbacks object given to a parallel run must make `flush` thread-safe.

namespace VornRenderAPI {

struct PrimitiveCache;

/// Supplied by the caller; outlives every renderer made with it. Every operation but `flush` has
/// a default that answers "nothing given".
struct ProceduralCallbacks {
  /// Keys of `getBool`.
  enum class EBoolAttribute : int {
    ClearDescriptionCache = 0,  ///< Set every description up again.
    DontReleaseCollection = 1,  ///< Keep no use count: the collection is never released.
  };
  /// Keys of `getString`. Value 3 is not used.
  enum class EStringAttribute : int {
    CacheInUse = 0,      ///< "true": a baked groom is in use; modules behind its manager are off.
    CacheDir = 1,        ///< Output directory of the intermediate file; default "vornCache/".
    Generator = 2,       ///< Name of the generator phase (shadow passes).
    Phase = 4,           ///< Render phase: "Shadow", or anything else for a colour pass.
    RenderCam = 5,       ///< "name,dx,dy,dz": a camera name and its view direction.
    RenderCamFOV = 6,    ///< "h,v": field of view in degrees.
    RenderCamRatio = 7,  ///< Aspect ratio.
    RenderCamXform = 8,  ///< 16 comma separated numbers, row by row, camera to world.
    RenderMethod = 9,    ///< "DRA" or "DSO".
  };
  /// Keys of `getFloat`.
  enum class EFloatAttribute : int {
    ShadowMotionBlur = 0,  ///< Not 0: motion samples take part in shadow passes.
    ShutterOpen = 1,       ///< Shutter open time.
  };
  /// Keys of `getFloatArray` and `getArraySize`.
  enum class EFloatArrayAttribute : int {
    DensityFalloff = 0,  ///< 7 values: x, y, z, radius A, radius B, step selector, unused.
    LodHi = 1,           ///< 2 values: lodHiLower, lodHiUpper.
    LodLo = 2,           ///< 2 values: lodLoLower, lodLoUpper.
    LodMed = 3,          ///< 2 values: lodMedLower, lodMedUpper.
    Shutter = 4,         ///< Motion sample times, one per sample; at most 20 are read.
  };

  virtual ~ProceduralCallbacks() {}
  /// Receives one batch of primitives of the patch `geomName` (the patch name after its last
  /// ":"). `cache` is valid only during the call.
  virtual void flush(const char* geomName, PrimitiveCache* cache) = 0;
  /// Says that face `face` of the patch `geomName` is rendered: every batch of it has been given
  /// to `flush`. Called once per face a FaceRenderer renders, alone or in a parallel run (then
  /// on the worker that rendered it), whether or not the face made primitives. A plug-in that
  /// writes in face order can pass a face on once it and every face before it are done.
  virtual void faceDone(const char* /*geomName*/, unsigned /*face*/) {}
  /// Reports a text.
  virtual void log(const char* /*text*/) {}
  /// The values of `key`, `getArraySize(key)` of them; null when none.
  virtual const float* getFloatArray(EFloatArrayAttribute /*key*/) { return nullptr; }
  /// The text of `key`; null or "" when none.
  virtual const char* getString(EStringAttribute /*key*/) { return nullptr; }
  virtual float getFloat(EFloatAttribute /*key*/) { return 0.0f; }
  virtual bool getBool(EBoolAttribute /*key*/) { return false; }
  /// The number of values `getFloatArray(key)` gives.
  virtual unsigned getArraySize(EFloatArrayAttribute /*key*/) { return 0; }
  /// The value of the user attribute `name` ("user:vorn_width", "custom_float_density"), or
  /// null or "" when the user gave none.
  virtual const char* getOverride(const char* /*name*/) { return nullptr; }
  /// The object's world matrix at `time`, 16 floats row by row (row vectors). The default
  /// writes the identity.
  virtual void getTransform(float /*time*/, float matrix[16]) {
    for (int i = 0; i < 16; ++i) matrix[i] = (i % 5 == 0) ? 1.0f : 0.0f;
  }
};

/// A read-only view of one batch, given to `ProceduralCallbacks::flush`. Arrays of three
/// components ("vec3") are flat float arrays, x y z per entry; sizes count entries. Every getter
/// reports "Invalid " + enum name for a key (or row) out of range and answers 0, null or "".
/// Per-primitive channels have one entry per primitive of the batch, in emission order; the
/// channels of the `EBoolAttribute` flags 0 to 28 are filled only when that flag is true.
struct PrimitiveCache {
  /// Which channels the batch carries (0 to 28), then the state of the batch (29 to 36).
  enum class EBoolAttribute : int {
    DescriptionId,
    DPdu,
    DPdug,
    DPduref,
    DPdurefg,
    DPdv,
    DPdvg,
    DPdvref,
    DPdvrefg,
    FaceId,
    GeomId,
    GeomName,
    Length,
    N,
    Ng,
    Nref,
    Nrefg,
    P,
    Pg,
    Pref,
    Prefg,
    PrimitiveId,
    RandomFloat,
    RandomInt,
    Stray,
    T,
    U,
    V,
    Width,
    ConstantWidth,   ///< 29: the width expression of a spline folds to one value (before ramp
                     ///< and taper; see EFloatAttribute).
    ConstantLength,  ///< 30: the length expression of a spline folds to one value.
    FaceCamera,      ///< 31: splines are ribbons facing the camera (no normals).
    BatchMode,       ///< 32: the process runs as a batch render.
    CreateRibFile,   ///< 33: the renderer was asked to write its intermediate file.
    ReUseDRAs,       ///< 34: delayed archives are to be reused.
    IsArchive,       ///< 35: the active primitive is an archive.
    IsSpline,        ///< 36: the active primitive is a spline.
  };
  enum class EDoubleAttribute : int {
    PrimitiveBound,  ///< The renderer's `primitiveBound` attribute.
    MaxBound,        ///< How far emitted primitives reached beyond their faces so far.
  };
  enum class EFloatAttribute : int {
    ConstantWidth,  ///< The width when `EBoolAttribute::ConstantWidth` is true.
  };
  enum class EIntAttribute : int {
    NumLodRanges,  ///< Level-of-detail ranges of an archive (0 to 4).
  };
  enum class EUIntAttribute : int {
    BatchCount,   ///< Primitives in this batch.
    BatchLimit,   ///< Primitives per batch before an early flush; 0: one batch per face.
    SampleCount,  ///< Motion samples: rows of the per-sample arrays.
  };
  /// Level-of-detail ranges of an archive, three doubles each: the pixel areas (lower, upper)
  /// in which a renderer shows the range's file, and its slot (0 low, 1 medium, 2 high). One
  /// range per slot in use, low first; `EIntAttribute::NumLodRanges` of them.
  enum class EVec3Attribute : int { LodRange0, LodRange1, LodRange2, LodRange3 };
  enum class EBoolArrayAttribute : int { CustomBool };
  enum class EDoubleArrayAttribute : int { CustomDouble };
  /// Per-primitive float channels.
  enum class EFloatArrayAttribute : int {
    ConstantWidth,  ///< With EBoolAttribute::ConstantWidth: that width per primitive, times the
                    ///< level-of-detail width factor.
    Length,         ///< length_VP
    RandomFloat,    ///< rf_VP
    Stray,          ///< stray_VP
    U,              ///< u_VS
    V,              ///< v_VS
    Width,          ///< width_VP
    ArchiveFrame,   ///< 7: the archive's own animation frame, per archive.
  };
  /// Per-primitive integer channels.
  enum class EIntArrayAttribute : int {
    CVCount,        ///< CVs of each spline, control points of each card (5) or sphere (4); rows
                    ///< of the point arrays, in order.
    DescriptionId,  ///< descid_VP
    FaceId,         ///< faceid_VS
    GeomId,         ///< geomid_VS
    PrimitiveId,    ///< id_VP: the place of the primitive in its face's sample sequence.
    RandomInt,      ///< ri_VP
    ArchiveGroup,   ///< 6: the archive group of each archive.
  };
  /// String channels: per primitive (GeomName, archive files) or per custom attribute.
  enum class EStringArrayAttribute : int {
    ArchiveFile,   ///< 0: per archive, the file of each level-of-detail range in range order
                   ///< (NumLodRanges entries per archive); several files of one key are joined
                   ///< by ';', and a slot without a file is "".
    ArchiveProxy,  ///< 1: per archive, the file of its proxy slot ("" for none).
    GeomName,    ///< 2: geomName_VS per primitive.
    CustomName,         ///< 3: name of each custom channel, in row order of the custom tables.
    CustomType,         ///< Type word of each custom channel ("float", "color", "int", ...).
    CustomDeclaration,  ///< "uniform <type>" per primitive, or "varying <type>" per CV.
  };
  /// Per-primitive vector channels, each three floats per primitive.
  enum class EVec3ArrayAttribute : int {
    DPdu,
    DPdug,
    DPduref,
    DPdurefg,
    DPdv,
    DPdvg,
    DPdvref,
    DPdvrefg,
    N,
    Ng,
    Nref,
    Nrefg,
    P,
    Pg,
    Pref,
    Prefg,
    T,
  };
  /// Row = motion sample for WidthsPerCV; row = custom channel for CustomFloat: per primitive one
  /// float (three for "vector", "color", "point", "normal"), or for a "varying" channel that many
  /// per CV. A channel of type "int" has an empty float row.
  enum class EFloatArray2DAttribute : int { WidthsPerCV, CustomFloat };
  /// Row = custom channel: one int per primitive for type "int", empty for the other types.
  enum class EIntArray2DAttribute : int { CustomInt };
  /// Row = motion sample. Points: the CVs of splines and the control points of cards and
  /// spheres (CVCount per primitive, in order) or, for archives, four vectors per primitive:
  /// the position, then the axes that the archive's own x, y (up) and z map to, each of the
  /// primitive's width, length or depth over `archiveSize`, so that (axes, position) is the
  /// archive's placement.
  /// Normals: one per CV of splines that do not face the camera.
  enum class EVec3Array2DAttribute : int { Points, Normals };

  virtual ~PrimitiveCache() {}

  /// @name Getters, by kind
  /// @{
  virtual const float* getVec3Array2D(EVec3Array2DAttribute key, unsigned row) const = 0;
  virtual const int* getIntArray2D(EIntArray2DAttribute key, unsigned row) const = 0;
  virtual const float* getFloatArray2D(EFloatArray2DAttribute key, unsigned row) const = 0;
  virtual const float* getVec3Array(EVec3ArrayAttribute key) const = 0;
  /// Entry `index` of a string channel.
  virtual const char* getStringArray(EStringArrayAttribute key, unsigned index) const = 0;
  virtual const int* getIntArray(EIntArrayAttribute key) const = 0;
  virtual const float* getFloatArray(EFloatArrayAttribute key) const = 0;
  virtual const double* getDoubleArray(EDoubleArrayAttribute key) const = 0;
  virtual const bool* getBoolArray(EBoolArrayAttribute key) const = 0;
  /// Three doubles.
  virtual const double* getVec3(EVec3Attribute key) const = 0;
  virtual unsigned getUInt(EUIntAttribute key) const = 0;
  /// The `typeName` of the primitives ("SplinePrimitive", "CardPrimitive", ...).
  virtual const char* getString() const = 0;
  virtual int getInt(EIntAttribute key) const = 0;
  virtual float getFloat(EFloatAttribute key) const = 0;
  virtual double getDouble(EDoubleAttribute key) const = 0;
  virtual bool getBool(EBoolAttribute key) const = 0;
  /// @}

  /// @name Sizes (entries, not floats)
  /// @{
  virtual unsigned getVec3Array2DSize(EVec3Array2DAttribute key, unsigned row) const = 0;
  virtual unsigned getIntArray2DSize(EIntArray2DAttribute key, unsigned row) const = 0;
  virtual unsigned getFloatArray2DSize(EFloatArray2DAttribute key, unsigned row) const = 0;
  virtual unsigned getVec3ArraySize(EVec3ArrayAttribute key) const = 0;
  virtual unsigned getStringArraySize(EStringArrayAttribute key) const = 0;
  virtual unsigned getIntArraySize(EIntArrayAttribute key) const = 0;
  virtual unsigned getFloatArraySize(EFloatArrayAttribute key) const = 0;
  virtual unsigned getDoubleArraySize(EDoubleArrayAttribute key) const = 0;
  virtual unsigned getBoolArraySize(EBoolArrayAttribute key) const = 0;
  /// @}

  /// The box of the archive of primitive `prim` as (x min, x max, y min, y max, z min, z max), in
  /// the archive files' own space (the files of all its slots together); false (box untouched)
  /// when the primitive has no archive or none of its files could be read.
  virtual bool cachedBound(unsigned prim, double bbox[6]) const = 0;
};

/// What the plug-in may ask of the description being rendered.
struct Description {
  enum class EStringAttribute : int {
    PrimitiveType = 0,  ///< The active primitive's `typeName`.
  };
  virtual ~Description() {}
  /// For 0 the active primitive's `typeName`; otherwise "" and the error
  /// "Invalid EStringAttribute".
  virtual const char* getString(int key) const = 0;
};

/// One patch of one description of one collection.
struct PatchRenderer {
  /// Parses `args`, imports or reuses the collection and finds description and patch. Null
  /// (with the reason in the log) on failure. `callbacks` must outlive the renderer.
  static PatchRenderer* init(ProceduralCallbacks* callbacks, const char* args);
  /// Deletes every collection whose name starts with "VR_RENDER_" (the temporary render
  /// collections of batch and motion-blurred renders).
  static void deleteTempRenderPalettes();
  /// The version banner goes to standard error once per process, at the first `init`. A front
  /// end that keeps standard error for its own lines marks it as shown beforehand.
  static void setBannerShown(bool shown);

  virtual ~PatchRenderer() {}
  /// Steps to the next face of the patch. False, with `face` set to ~0u, when the faces are
  /// exhausted. A face out of view comes with an all-zero box; otherwise bbox is (x min, x max,
  /// y min, y max, z min, z max) over every motion sample, padded by the primitive bound.
  virtual bool nextFace(double bbox[6], unsigned& face) = 0;
  /// The description, owned by this renderer; null when `init` found none.
  virtual Description* description() = 0;
  /// The box of the whole patch merged over every motion sample, padded when `padded`. False
  /// (bbox untouched) without a patch.
  virtual bool patchBox(double bbox[6], bool padded) = 0;
  /// The box of the patch in one motion sample (0: the description's own). False (bbox
  /// untouched) when that sample has no description or patch.
  virtual bool sampleBox(double bbox[6], unsigned sample, bool padded) = 0;
};

/// One face of a patch.
struct FaceRenderer {
  /// Null when `patch` is null or failed. `callbacks` null: the patch renderer's.
  static FaceRenderer* init(PatchRenderer* patch, unsigned face, ProceduralCallbacks* callbacks = nullptr);
  virtual ~FaceRenderer() {}
  /// Generates the face; primitives arrive through `flush`, none for an empty face.
  virtual void render() = 0;
};

/// Renders queued faces of one patch on several threads.
struct ParallelRenderer {
  /// Null, with a message, for a null or failed patch renderer.
  static ParallelRenderer* init(PatchRenderer* patch);
  virtual ~ParallelRenderer() {}
  /// Whether threading is enabled and the primitive, generator and renderer may run on workers.
  virtual bool canRunInParallel() = 0;
  /// Worker threads: positive caps the parallelism, 0 takes the library's thread count,
  /// negative renders the queue serially.
  virtual void setThreads(int threads) = 0;
  /// Faces per task; 0 or less lets the library choose.
  virtual void setGrain(int grain) = 0;
  /// Queues a face renderer, which stays the caller's. False, with a message, for an invalid one.
  virtual bool enqueue(FaceRenderer* face) = 0;
  /// Renders the queue, in parallel when possible, else face by face in queue order.
  virtual void run() = 0;
  /// Empties the queue without deleting the face renderers.
  virtual void release() = 0;
};

/// Scoped hold of the process-wide recursive lock every entry point above takes. A caller may
/// hold it around several calls to keep them together.
class RenderLock {
 public:
  /// Acquires the lock.
  RenderLock();
  /// Releases it if still held.
  ~RenderLock();
  RenderLock(const RenderLock&) = delete;
  RenderLock& operator=(const RenderLock&) = delete;
  /// Takes the lock again after `release`; does nothing while held.
  void acquire();
  /// Gives the lock up before the end of the scope; does nothing when not held.
  void release();

 private:
  bool held = false;
};

}  // namespace VornRenderAPI
