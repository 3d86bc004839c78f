// SPDX-License-Identifier: Apache-2.0
#pragma once

/// How often this program has asked the C++ runtime for memory. What libc and libcups ask for does not count.
long allocation_count();
