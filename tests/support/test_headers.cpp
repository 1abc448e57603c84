// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// Empty: the target that precompiles the headers of the tests needs one source.
