#pragma once
// SgSurface: the common base of the surface evaluators (SgNurbsSurface, SgSubdSurface), so that
// SgSurfaceCache can hold and destroy either kind through one pointer type. It has no operations
// of its own; callers that need geometry know which kind they hold (from the patch kind).

class SgSurface {
 public:
  SgSurface() = default;
  virtual ~SgSurface() = default;

 protected:
  SgSurface(const SgSurface&) = default;
  SgSurface(SgSurface&&) = default;
  SgSurface& operator=(const SgSurface&) = default;
  SgSurface& operator=(SgSurface&&) = default;
};
