// What an image must hold for its transport: the checks of image_checks.cpp that look at its bytes.
#pragma once

#include <QByteArray>
#include <QtEndian>
#include <cstdint>

#include "bundle_check/checks.h"

namespace bundle_check {

// The number at `offset`, which must lie inside the image with all its bytes.
template <typename Number>
Number ReadLittleEndian(QByteArray const& bytes, qsizetype offset)
{
    return qFromLittleEndian<Number>(bytes.constData() + offset);
}

// Each returns false if the bytes are no image for the transport at all; nothing else about them is
// worth a finding then.

// A Cortex-M image begins with its vector table: the initial stack pointer, then the address at
// which it starts. Compares both with the chip's memories, with the image's place in flash and with
// the start address and the boot-mode marker. For UART and USB.
bool CheckVectorTable(Config const& config, QByteArray const& image, Findings& findings);

// Whether a file may be an image for one of the supported chips, at any place in its flash. `head`:
// its first 8 bytes or more.
bool BeginsWithVectorTable(QByteArray const& head);

// An image for MCUboot begins with a header; behind the firmware it has an area of TLVs, entries of
// type, length and value, one of which is the digest of what lies before the area.
bool CheckMcubootImage(Config const& config, QByteArray const& image, Findings& findings);

// True, with a finding, if every byte of `what` ("the image") is what flash or a file holds before
// anything is written.
bool CheckBlank(Place const& place, QString const& what, QByteArray const& bytes,
                Findings& findings);

// The first bytes of a header of MCUboot.
inline constexpr char kMcubootMagic[] = "\x3D\xB8\xF3\x96";

}  // namespace bundle_check
