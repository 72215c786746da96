#include "record/sink.h"

namespace record {
namespace {

class EmptySink final : public ISink {
public:
    void BeginSession(QString const& /*port*/) override {}
    uint32_t AddLine(QString const& /*name*/, QString const& /*description*/) override { return 0; }
    void AddBytes(uint32_t /*line*/, Direction /*direction*/, QByteArrayView /*bytes*/) override {}
    void AddEvent(Event const& /*event*/) override {}
};

}  // namespace

ISink& NoSink()
{
    static EmptySink sink;
    return sink;
}

}  // namespace record
