// Compares the names that QSysInfo::productType() gives to systems. They are passed as values, so
// that each system's rules can be tested on any other.
#pragma once

#include <QLatin1String>
#include <QString>

inline bool IsProductType(QString const& product_type, QLatin1String name)
{
    return product_type.compare(name, Qt::CaseInsensitive) == 0;
}

inline bool IsMacos(QString const& product_type)
{
    return IsProductType(product_type, QLatin1String("macos"));
}
