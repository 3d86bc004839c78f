// SPDX-License-Identifier: Apache-2.0
// The channel trace shows in the job log what the filter and the backend exchange.
#pragma once

#include <cups/sidechannel.h>

/// Writes a labelled hexadecimal dump of a packet to standard error as "DEBUG: " lines of the job log: one
/// line with the size, then one line per 16 bytes. After the label, a data line has the offset in at least
/// four hexadecimal digits. All bytes are shown on purpose, however many there are. Make stderr line-buffered
/// first; otherwise, each byte is a write of its own.
///
/// @param label  names the packet: "[CMD]" is a request, "[STS]" a status reply, "[REP]" a levels reply.
/// @param data   the packet; `size` bytes are read, none if `size` is 0 or less.
/// @param size   in bytes. 0 prints a data line without bytes, a negative size prints the size line only.
void dump_mem(const char* label, const void* data, int size);

/// Returns the name of a side-channel status as in <cups/sidechannel.h>, for example
/// "CUPS_SC_STATUS_TIMEOUT".
///
/// @return constant text; "UNKNOWN" for a value that the header does not name.
const char* to_string(cups_sc_status_e status);
