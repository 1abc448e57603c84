// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/cli/groom_output.h"

#include "hosts/cli/console.h"

namespace kestrane {

void saveGroom(const std::string& path, const GroomDocument& document) {
  try {
    writeGroomFile(path, document);
  } catch (const GroomFileError& error) {
    throw CommandFailure(exitUnwritable, error.what());
  }
}

}  // namespace kestrane
