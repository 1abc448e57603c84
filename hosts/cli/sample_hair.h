// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vector>

#include "hosts/cli/sample_head.h"

namespace kestrane {

/// The parting of the sample's hair on the skin, from the hairline back to the crown.
std::vector<Vec3f> samplePart(const SampleHead& head);

/// Well over a hundred guide curves, roots first: shoulder-length hair, parted on the left, combed
/// over the head and falling past the ears.
std::vector<std::vector<Vec3f>> sampleGuides(const SampleHead& head);

}  // namespace kestrane
