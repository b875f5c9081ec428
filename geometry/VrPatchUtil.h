#pragma once
// Helpers shared by the patch kinds.

namespace VrPatchUtil {

/// The texel grid for edges of lengths lenU and lenV at `density` texels per unit (0 means 10
/// per unit): each side the power of two above len * density (at least 1 texel), an exact power
/// of two with an even exponent rounding up once more, capped at 4096. Answers resU * resV.
unsigned computeFaceResolution(double lenU, double lenV, double density, unsigned short& resU,
                               unsigned short& resV);

}  // namespace VrPatchUtil
