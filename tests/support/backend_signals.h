// The signals of a backend as texts: "started", "erase started", "erase finished", "42" (a
// percentage), "finished true" or "finished false", and the names of the connection statuses.
#pragma once

#include <QString>
#include <QStringList>
#include <functional>

#include "updater/firmware_updater_base.h"

// Calls `note` for each signal, on the thread that emits it.
inline void NoteSignals(FirmwareUpdaterBase& backend,
                        std::function<void(QString const&)> const& note)
{
    using Base = FirmwareUpdaterBase;
    auto const text = [note](char const* name) {
        return [note, name] { note(QString::fromLatin1(name)); };
    };
    QObject::connect(&backend, &Base::UpdateStarted, text("started"));
    QObject::connect(&backend, &Base::EraseStarted, text("erase started"));
    QObject::connect(&backend, &Base::EraseFinished, text("erase finished"));
    QObject::connect(&backend, &Base::ProgressUpdate,
                     [note](int percent) { note(QString::number(percent)); });
    QObject::connect(&backend, &Base::UpdateFinished,
                     [text](bool status) { text(status ? "finished true" : "finished false")(); });
    QObject::connect(&backend, &Base::UpdateConnectionStatus, [note](ConnectionStatus status) {
        static QStringList const names{QStringLiteral("Connected"), QStringLiteral("Disconnected"),
                                       QStringLiteral("VerificationFailed")};
        note(names.value(static_cast<int>(status)));
    });
}
