// Lets GoogleTest print Qt's texts as texts, alone and in containers, instead of byte by byte.
#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QString>
#include <ostream>
#include <string>

inline void PrintTo(QByteArray const& bytes, std::ostream* stream)
{
    *stream << testing::PrintToString(bytes.toStdString());
}

inline void PrintTo(QString const& text, std::ostream* stream)
{
    *stream << testing::PrintToString(text.toStdString());
}
