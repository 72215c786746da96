#include "mcuboot/queries.h"

#include <array>

#include "mcuboot/limits.h"
#include "mcuboot/request_maps.h"

namespace mcuboot {
namespace {

template <size_t Size>
QByteArray ToByteArray(std::array<uint8_t, Size> const& buffer, int size)
{
    return {reinterpret_cast<char const*>(buffer.data()), size};
}

QByteArray MakeEmptyMap()
{
    std::array<uint8_t, kEmptyMapBuffer> buffer;
    return ToByteArray(buffer, cborEncodeEmptyMap(buffer));
}

}  // namespace

Answer QueryImageState(Exchange& exchange)
{
    return exchange.Ask({kSmpRead, kImageGroup, kImageStateCommand, MakeEmptyMap()}, kQueryTimeout);
}

OtpValue QueryOtp(Exchange& exchange, uint32_t key)
{
    std::array<uint8_t, kOtpRequestBuffer> buffer;
    auto const size = cborEncodeOtpRequest(buffer, key);
    if (size < 0) {
        return {{.outcome = Outcome::kNotEncoded}, {}};
    }
    OtpValue value;
    value.answer = exchange.Ask({kSmpRead, kOtpGroup, kOtpReadCommand, ToByteArray(buffer, size)},
                                kQueryTimeout);
    if (value.answer.outcome == Outcome::kSuccess) {
        value.data = cborDecodeMapBstr(value.answer.payload, "data").value_or(QByteArray());
        value.answer.outcome = value.data.isEmpty() ? Outcome::kNoData : Outcome::kSuccess;
    }
    return value;
}

Answer EraseImage(Exchange& exchange)
{
    return exchange.Ask({kSmpWrite, kImageGroup, kEraseCommand, MakeEmptyMap()}, kEraseTimeout);
}

void Reset(Exchange& exchange)
{
    exchange.Send({kSmpWrite, kOsGroup, kResetCommand, MakeEmptyMap()});
}

Answer SendCommand(Exchange& exchange, Request request)
{
    if (request.payload.isEmpty()) {
        request.payload = MakeEmptyMap();
    }
    return exchange.Ask(request, kCommandTimeout);
}

}  // namespace mcuboot
