#include "updater/recorded_line.h"

#include <cstdint>
#include <utility>

namespace {

class RecordedLine final : public mcuboot::ILine {
public:
    RecordedLine(std::unique_ptr<mcuboot::ILine> line, record::ISink& record,
                 uint32_t recorded_line)
        : line_(std::move(line)), record_(record), recorded_line_(recorded_line)
    {}

    void Write(QByteArray const& bytes) override
    {
        record_.AddBytes(recorded_line_, record::Direction::kOut, bytes);
        line_->Write(bytes);
    }

    QByteArray Read(std::chrono::milliseconds time) override
    {
        auto bytes = line_->Read(time);
        record_.AddBytes(recorded_line_, record::Direction::kIn, bytes);
        return bytes;
    }

    void Clear() override { line_->Clear(); }
    void Pause(std::chrono::milliseconds time) override { line_->Pause(time); }
    std::chrono::milliseconds Time() const override { return line_->Time(); }

private:
    std::unique_ptr<mcuboot::ILine> line_;
    record::ISink& record_;
    uint32_t recorded_line_;
};

}  // namespace

std::unique_ptr<mcuboot::ILine> RecordLine(std::unique_ptr<mcuboot::ILine> line,
                                           record::ISink& record, QString const& port_name,
                                           unsigned baud)
{
    auto const number =
        record.AddLine(port_name, QStringLiteral("MCUboot serial, %1 baud, 8N1").arg(baud));
    return std::make_unique<RecordedLine>(std::move(line), record, number);
}
