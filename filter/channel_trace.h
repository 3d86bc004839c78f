// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/sidechannel.h>

/// Writes a labelled hexadecimal dump of a packet to standard error, every line of it a "DEBUG: " line of
/// the job log: a line with the size, then a line for each 16 bytes that opens with their offset in at least
/// four digits. On purpose, all bytes are shown, however many there are.
///
/// @param label  names the packet: "[CMD]" a request, "[STS]" a status reply, "[REP]" a levels reply.
/// @param data   the packet; read up to `size` bytes, not at all if `size` is 0 or less.
/// @param size   in bytes. 0 gives a data line without bytes, a negative size the size line alone.
void dump_mem(const char* label, const void* data, int size);

/// Names a side-channel status as <cups/sidechannel.h> spells it, for example "CUPS_SC_STATUS_TIMEOUT".
///
/// @return constant text; "UNKNOWN" for a value that the header does not name.
const char* to_string(cups_sc_status_e status);
