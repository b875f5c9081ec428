#pragma once
// Numbers drawn as line strokes (seven segments a digit), for id labels in a preview that has no
// font: placed in normalised device coordinates, a fixed number of pixels high whatever the
// view.

#include "renderers/VrGLCache.h"

#include <string>

/// Appends the strokes of `text` (digits and '-'; other characters leave a gap) to `mesh`,
/// starting at the clip-space point `clip` (x, y, w: the projected anchor) and running right,
/// each character 6 x 10 pixels of a `width` x `height` picture. Nothing for a point behind the
/// camera.
void VrGLAddLabel(VrGLCache::Mesh& mesh, const std::string& text, const double clip[4], unsigned width,
                  unsigned height, const SgVec3T<double>& color);

/// The clip-space point of `p` under the column-major matrix `viewProjection`.
void VrGLProject(const float viewProjection[16], const SgVec3T<double>& p, double clip[4]);

/// Appends the four edges of the box with corners (x0, y0) and (x1, y1), in pixels from the top
/// left of a `width` x `height` picture, to `mesh`, in front of everything drawn.
void VrGLAddRectangle(VrGLCache::Mesh& mesh, double x0, double y0, double x1, double y1, unsigned width,
                      unsigned height, const SgVec3T<double>& color);
