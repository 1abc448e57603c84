// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "core/base/vec.h"

namespace kestrane {

/// The concentration of pigment that a melanin value of 0 to 1 stands for (clamped first).
float melaninConcentration(float melanin);

/// The absorption per fibre radius, linear RGB, of a melanin and a redness, each clamped to 0..1:
/// the concentration times the mix of eumelanin and pheomelanin by redness. Spectra after d'Eon,
/// Francois, Hill, Letteri and Aubry (2011).
Vec3f melaninAbsorption(float melanin, float redness);

/// The viewport colour of a fibre, linear RGB: what five unit absorptions of the concentration let
/// through, times the dye, pulled half way to its luminance, since light that many fibres have
/// scattered looks less saturated than one pass through one.
Vec3f melaninColor(float concentration, float redness, Vec3f dye);

/// The width of the highlight along the fibre for a roughness of 0.02 to 1 (clamped), in radians.
/// The polynomial is that of Chiang, Bitterli, Tappan and Burley (2016).
float longitudinalRoughness(float roughness);

}  // namespace kestrane
