// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Returns the number of allocations by the C++ runtime in this program; those of libc and libcups do not
/// count.
long allocation_count();
