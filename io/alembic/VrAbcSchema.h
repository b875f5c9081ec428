#pragma once
// What the geometry schemas have in common: recognising which schema an object holds, finding
// its schema compound, and opening the typed child properties a schema expects. A schema is
// recognised strictly, as the format's readers do: the object's "schemaObjTitle" (or, in old
// files, its "schema") must be "<title>:<compound name>".

#include "io/alembic/VrAbcArrayProperty.h"
#include "io/alembic/VrAbcCompoundProperty.h"
#include "io/alembic/VrAbcObject.h"
#include "io/alembic/VrAbcScalarProperty.h"
#include "io/alembic/VrAbcTypes.h"

#include <cstdint>
#include <string>

class VrAbcSchema {
 public:
  enum class Kind { Xform, PolyMesh, SubD, Curves, NuPatch, Points, Camera, FaceSet, Light, Other, None };
  /// How the topology of a mesh, curve set or patch changes over its samples.
  enum class Variance { Constant, Homogeneous, Heterogeneous };

  /// The schema an object's metadata names, by the strict rule; Other when it names an unknown
  /// or ill-formed schema, None when it names none.
  static Kind strictKind(const VrAbcMetaData& objectMetaData);
  /// The schema whose title is `title` ("AbcGeom_Xform_v3" -> Xform), or Other.
  static Kind titleKind(const std::string& title);

  /// "Xform", "PolyMesh", ... "other", "none".
  static const char* kindName(Kind kind);
  /// "AbcGeom_PolyMesh_v1", ...; "" for Other and None.
  static const char* title(Kind kind);
  /// ".geom", ".xform" or ".faceset".
  static const char* compoundName(Kind kind);
  /// "AbcGeom_GeomBase_v1" for geometry, "" otherwise.
  static const char* baseType(Kind kind);
  static const char* varianceName(Variance variance);

  /// The schema compound of an object, found by its usual name. False with an Error naming the
  /// file when the object has no such compound.
  static bool openCompound(const VrAbcObject& object, Kind kind, VrAbcCompoundProperty& out);

  /// Opens the child `name` as an array (or scalar) property of the given element type and
  /// extent, and, when `interpretation` is not null, of that interpretation. False with an Error
  /// when it is absent or of another type.
  static bool typedArray(const VrAbcCompoundProperty& parent, const std::string& name, VrAbcPod pod,
                         int extent, const char* interpretation, VrAbcArrayProperty& out);
  static bool typedScalar(const VrAbcCompoundProperty& parent, const std::string& name, VrAbcPod pod,
                          int extent, const char* interpretation, VrAbcScalarProperty& out);

  /// The sample of a property that schema sample `index` reads: the same index, clamped to the
  /// property's own samples. False with an Error when the property has no samples at all.
  static bool clampIndex(const VrAbcCompoundProperty& schema, const std::string& path,
                         uint32_t index, uint32_t numSamples, uint32_t& out);

  /// The largest sample count among the scalar and array children of a compound.
  static uint32_t maxChildSamples(const VrAbcCompoundProperty& compound);
};
