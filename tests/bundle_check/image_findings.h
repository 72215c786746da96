// Bundles that differ in their image alone, and what is found about it.
#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QStringList>
#include <initializer_list>

#include "tests/bundle_check/bundle_folder.h"

// The transports and chips that an image can be for.
enum class Unit { G4, U5, OtherChip, Usb, UsbU5, Mcuboot };

class ImageBundle : public BundleFolder {
public:
    ImageBundle(Unit unit, QByteArray const& image);
    // With an image that the unit would start. Only its beginning takes room on the disk.
    ImageBundle(Unit unit, qint64 size);

    // Severity and text of the findings about the image.
    QStringList Findings() const;
};

struct ImageCase {
    Unit unit;
    QByteArray image;
    QByteArray finding;  // the beginning of the only one about the image; empty: none
};
void ExpectImageFindings(std::initializer_list<ImageCase> cases);

// One row a line: g4, u5, other, usb, usb-u5 or mcuboot, the size of an image that such a unit
// would start, and the beginning of the only finding about it. A + in front means that there may be
// other findings as well.
//     g4 1024 => clean
//     +g4 1023 => error: The image has 1023 bytes
void ExpectSizeFindings(QByteArray const& table);
