// A failed request in words, for the support log: what came instead of the answer, and when.
#pragma once

#include <QString>

#include "mcuboot/exchange.h"

namespace mcuboot {

// "no answer within 3012 ms" or "error code 7 after 36 ms". Empty for a success.
QString DescribeCause(Answer const& answer);

}  // namespace mcuboot
