// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace kestrane {

class GuideHierarchy;
struct CorrectiveData;
struct FlowData;
struct PartData;

// What a groom file embeds has writers of its own, which know neither the file's keys nor how it
// words its complaints. Each of these throws GroomFileError "groom file: 'KEY' holds a non-finite
// value at index N" for the first number that no file can hold; the index counts the numbers of one
// guide, part, pin, sink or layer under that key.
void checkFinite(const GuideHierarchy& hierarchy);
void checkFinite(const PartData& parts);
void checkFinite(const CorrectiveData& correctives);
void checkFinite(const FlowData& flow);

}  // namespace kestrane
