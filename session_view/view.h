// A recorded session as text: the whole conversation, or a summary. Pure.
#pragma once

#include <QString>

#include "record/pcapng_reader.h"

namespace session_view {

// One line an exchange or event, with its time since the beginning; gaps and repeats are marked. A
// file that could not be read to its end closes with the reason.
QString FormatConversation(record::Recording const& recording);

// The phases with their times, the slowest answers, and the cause of a failure in one sentence.
QString FormatSummary(record::Recording const& recording);

}  // namespace session_view
