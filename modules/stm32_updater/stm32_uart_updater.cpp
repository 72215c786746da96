#include "modules/stm32_updater/stm32_uart_updater.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <numeric>
#include <source_location>
#include <utility>

#include "modules/stm32_updater/limits.h"
#include "runtime/bounded_string.h"
#include "runtime/console.h"
#include "runtime/error_message.h"
#include "runtime/log.h"
#include "runtime/time.h"

namespace stm32_updater {
namespace {

constexpr uint8_t kProtocolVersion31 = 0x31;
constexpr uint8_t kProtocolVersion33 = 0x33;

// "PUWF": the little-endian image of the boot-mode marker 0x46575550.
constexpr std::array kBootModeMarker{std::byte{'P'}, std::byte{'U'}, std::byte{'W'},
                                     std::byte{'F'}};

std::string DescribeMissing(size_t expected, std::span<std::byte const> received,
                            Milliseconds timeout)
{
    if (received.empty()) {
        return fmt::format("no answer within {} ms", timeout.count());
    }
    std::string bytes;
    for (auto const value : received) {
        bytes += fmt::format(" {:02x}", std::to_integer<unsigned>(value));
    }
    return fmt::format("{} of {} bytes came, then nothing for {} ms:{}", received.size(), expected,
                       timeout.count(), bytes);
}

// Sets `time` to how long it existed, also when an exception ends it.
class Stopwatch {
public:
    Stopwatch(Waits const& waits, std::optional<std::chrono::milliseconds>& time)
        : waits_(waits), time_(time), start_(waits.now())
    {}
    ~Stopwatch()
    {
        time_ = std::chrono::duration_cast<std::chrono::milliseconds>(waits_.now() - start_);
    }
    Stopwatch(Stopwatch const&) = delete;
    Stopwatch& operator=(Stopwatch const&) = delete;

private:
    Waits const& waits_;
    std::optional<std::chrono::milliseconds>& time_;
    std::chrono::steady_clock::time_point start_;
};

}  // namespace

Stm32UartUpdater::Stm32UartUpdater(std::function<void(bool)> set_line_a,
                                   std::function<void(bool)> set_line_b,
                                   hal::uart::IUartDriver& uart, IDispatcher& dispatcher,
                                   std::mutex& update_mutex, unsigned char mcu_id, bool mass_erase,
                                   std::function<void()> first_hook,
                                   std::function<void()> second_hook, Rate rate, Waits waits)
    : set_line_a_(std::move(set_line_a)),
      set_line_b_(std::move(set_line_b)),
      uart_(uart),
      dispatcher_(dispatcher),
      update_mutex_(update_mutex),
      mcu_id_(mcu_id),
      first_hook_(std::move(first_hook)),
      second_hook_(std::move(second_hook)),
      mass_erase_(mass_erase),
      rate_(rate),
      waits_(std::move(waits))
{
    rx_data_.reserve(kRxCapacity);
}

// ---- Public operations: every protocol failure ends here ----

bool Stm32UartUpdater::Update(std::span<std::byte const> image, ProgressCallback const& progress)
{
    return Update(image, progress, kFlashStart);
}

bool Stm32UartUpdater::Update(std::span<std::byte const> image, ProgressCallback const& progress,
                              unsigned address) noexcept
{
    std::scoped_lock const lock(update_mutex_);
    return DoUpdate(image, progress, address);
}

bool Stm32UartUpdater::ConnectDevice()
{
    set_line_a_(true);
    saved_setup_ = uart_.GetSetup();
    uart_.Setup(rate_, hal::uart::IUartDriver::Settings::k8E1);
    Subscribe();
    facts_ = {};
    image_address_.reset();
    try {
        Connect();
        return true;
    } catch (kelvane::ExceptionString const& error) {
        SendFailureLog(error.what());
        return false;
    }
}

void Stm32UartUpdater::DisconnectDevice()
{
    rx_subscription_.reset();
    uart_.Setup(saved_setup_.first, saved_setup_.second);
}

std::vector<std::byte> Stm32UartUpdater::GetOtp(unsigned address, unsigned long size)
{
    std::vector<std::byte> otp;
    facts_.failure.clear();
    try {
        while (otp.size() < size) {
            auto const rest = size - otp.size();
            auto const piece = CmdRead(address + static_cast<uint32_t>(otp.size()),
                                       std::min<size_t>(rest, kOtpReadSize));
            otp.insert(otp.end(), piece.begin(), piece.end());
        }
    } catch (kelvane::ExceptionString const& error) {
        SendFailureLog(error.what());
        return {};
    }
    return otp;
}

void Stm32UartUpdater::ExitDfu(unsigned start_address, unsigned boot_mode_address)
{
    auto const setup = uart_.GetSetup();
    uart_.Setup(rate_, hal::uart::IUartDriver::Settings::k8E1);
    Subscribe();
    facts_.failure.clear();
    image_address_.reset();
    try {
        CmdWrite(boot_mode_address, kBootModeMarker);
        JumpTo(start_address);
    } catch (kelvane::ExceptionString const& error) {
        SendFailureLog(error.what());
    }
    rx_subscription_.reset();
    uart_.Setup(setup.first, setup.second);
}

void Stm32UartUpdater::SendFailureLog(char const* text)
{
    kelvane::PrintToConsole(fmt::format("\n{}", text));
    etl::string<256> line;
    fmt::format_to(std::back_inserter(line), "{}", text);
    detail::DoLog(common::log_level_t::kError, line);
}

// ---- What is noted for whoever explains a failure ----

void Stm32UartUpdater::Begin(char const* name, char const* request)
{
    command_name_ = name;
    request_ = request;
    address_.reset();
}

void Stm32UartUpdater::Fail(std::string const& message, std::string const& cause,
                            std::source_location const& location)
{
    facts_.failure = DescribeStep() + ": " + cause;
    throw kelvane::ExceptionString(message.c_str(), location);
}

std::string Stm32UartUpdater::DescribeStep() const
{
    if (!address_) {
        return request_;
    }
    auto step = fmt::format("{} at 0x{:08X}", request_, *address_);
    auto const body_size = facts_.image_size - std::min(facts_.image_size, kTrailerSize);
    if (!image_address_ || *address_ < *image_address_ || *address_ - *image_address_ > body_size) {
        return step;
    }
    auto const offset = size_t{*address_ - *image_address_};
    auto const body_blocks = (body_size + kMaxBlock - 1) / kMaxBlock;
    auto const block = offset == body_size ? body_blocks : offset / kMaxBlock;
    return step + fmt::format(", block {} of {}", block + 1, body_blocks + 1);
}

std::chrono::milliseconds Stm32UartUpdater::TimeSinceSent() const
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(waits_.now() - sent_at_);
}

// ---- The session ----

void Stm32UartUpdater::Subscribe()
{
    // The old subscription ends before the new one begins: the driver has only one.
    rx_subscription_.reset();
    rx_subscription_ = uart_.SubscribeOnRx([this](std::byte value) { OnByteReceived(value); });
}

uint16_t Stm32UartUpdater::Connect()
{
    first_hook_();
    set_line_a_(true);
    set_line_b_(true);
    waits_.pause(kResetPause);
    rx_queue_.Clear();
    set_line_a_(false);
    waits_.pause(kBootPause);
    second_hook_();

    Begin("Init con", "the first byte, 0x7F");
    SendToDfu(std::array{kSyncByte});
    WaitForDfuAck(kAnswerTimeout);

    auto const supported = CmdGet();
    commands_ = static_cast<uint16_t>(supported >> 16);
    auto const version = static_cast<uint8_t>(supported & 0xFF);
    facts_.bootloader_version = version;
    if (version != kProtocolVersion31 && version != kProtocolVersion33) {
        Fail(fmt::format("protocol version wrong: 0x{:02x}", version),
             fmt::format("bootloader version 0x{:02x} is not supported", version));
    }
    get_variant_ = version == kProtocolVersion31 ? 14 : 15;

    auto const product_id = CmdGetId();
    facts_.product_id = product_id;
    auto const* config = FindFlashConfig(product_id);
    if (config == nullptr) {
        Fail(fmt::format("product ID not supported: 0x{:04x}", product_id),
             fmt::format("product id 0x{:04x} is not supported", product_id));
    }
    flash_config_ = *config;
    return product_id;
}

// ---- The update ----

bool Stm32UartUpdater::DoUpdate(std::span<std::byte const> image, ProgressCallback const& progress,
                                unsigned address)
{
    facts_.failure.clear();
    facts_.image_size = image.size();
    facts_.written = 0;
    facts_.erase_time.reset();
    facts_.write_time.reset();
    facts_.refused_blocks = 0;
    // Too small for a trailer: refused before anything is erased.
    if (image.size() < kTrailerSize) {
        return false;
    }
    try {
        progress_ = progress;
        progress_(State::kProgramming, 0);
        // The value is not needed, but a bootloader without this command is not the expected one.
        CmdGetVerRops();
        EraseFlash(image.size());
        WriteImage(image, address);
        RunClosingHooks();
        return true;
    } catch (kelvane::ExceptionString const& error) {
        SendFailureLog(error.what());
        return false;
    }
}

void Stm32UartUpdater::EraseFlash(size_t image_size)
{
    if (!flash_config_) {
        Fail(fmt::format("no chip identified, command {}", command_name_),
             "the chip was not identified before");
    }
    auto const size = static_cast<int32_t>(image_size);
    auto const page_size = static_cast<int32_t>(flash_config_->page_size);
    auto const pages = size / page_size + (size % page_size != 0 ? 1 : 0);

    // Pages are counted from the start of flash, whatever the address: the image is assumed to
    // start there.
    std::vector<uint16_t> page_numbers;
    if (!mass_erase_ && pages > 0) {
        page_numbers.resize(static_cast<size_t>(pages));
        std::iota(page_numbers.begin(), page_numbers.end(), uint16_t{0});
    }
    if ((commands_ & GetCommandBit(Command::kErase)) != 0) {
        std::vector<std::byte> page_bytes;
        page_bytes.reserve(page_numbers.size());
        for (auto const page : page_numbers) {
            page_bytes.push_back(static_cast<std::byte>(page & 0xFF));
        }
        CmdErase(page_bytes);
    } else if ((commands_ & GetCommandBit(Command::kExtendedErase)) != 0) {
        CmdEraseExt(page_numbers);
    } else {
        SendFailureLog("No erase methods");
    }
}

void Stm32UartUpdater::WriteImage(std::span<std::byte const> image, unsigned address)
{
    Stopwatch const stopwatch(waits_, facts_.write_time);
    image_address_ = address;
    auto const body_size = image.size() - kTrailerSize;
    std::array<std::byte, kTrailerSize> trailer{};
    std::copy_n(image.subspan(body_size).begin(), 4, trailer.begin());
    trailer[4] = std::byte{mcu_id_};

    CmdWrite(address, image.first(body_size));
    // Written last and separately: an interrupted update leaves no valid trailer.
    CmdWrite(address + static_cast<uint32_t>(body_size), trailer);
}

void Stm32UartUpdater::RunClosingHooks()
{
    first_hook_();
    set_line_b_(false);
    set_line_a_(true);
    second_hook_();
}

void Stm32UartUpdater::JumpTo(uint32_t start_address)
{
    request_ = "Go";
    address_ = start_address;
    SendCommand(Command::kGo);
    WaitForDfuAck(kAnswerTimeout);
    // The firmware starts at once, so the answer to the address is not waited for.
    SendToDfu(GetAddressBytes(start_address));
}

// ---- Commands ----

uint32_t Stm32UartUpdater::CmdGet()
{
    Begin("Get", "Get");
    SendCommand(Command::kGet);
    WaitForDfuAck(kAnswerTimeout);
    auto const n = WaitForNBytesToReceive(kAnswerTimeout);
    auto const answer = WaitForData(n, kAnswerTimeout);
    auto const version = std::to_integer<uint32_t>(answer[0]);
    uint32_t mask = 0;
    for (auto const code : answer.subspan(1)) {
        mask |= GetCommandBit(static_cast<Command>(code));
    }
    WaitForDfuAck(kAnswerTimeout);
    return (mask << 16) | version;
}

std::byte Stm32UartUpdater::CmdGetVerRops()
{
    Begin("Get Ver Rops", "Get Version");
    if ((commands_ & GetCommandBit(Command::kGetVersionReadProtection)) == 0) {
        Fail(fmt::format("Invalid DFU version, command {}", command_name_),
             "the bootloader does not list this command");
    }
    SendCommand(Command::kGetVersionReadProtection);
    WaitForDfuAck(kAnswerTimeout);
    auto const version = WaitForData(3, kAnswerTimeout)[0];
    WaitForDfuAck(kAnswerTimeout);
    return version;
}

uint16_t Stm32UartUpdater::CmdGetId()
{
    Begin("Get ID", "Get ID");
    SendCommand(Command::kGetId);
    WaitForDfuAck(kAnswerTimeout);
    auto const n = WaitForNBytesToReceive(kAnswerTimeout);
    if (n >= 3) {
        Fail(fmt::format("Too many bytes, not {}", n),
             fmt::format("{} bytes announced, 2 expected", n));
    }
    uint16_t product_id = 0;
    for (auto const part : WaitForData(n, kAnswerTimeout)) {
        product_id = static_cast<uint16_t>((product_id << 8) | std::to_integer<uint16_t>(part));
    }
    WaitForDfuAck(kAnswerTimeout);
    return product_id;
}

std::span<std::byte const> Stm32UartUpdater::CmdRead(uint32_t address, size_t n)
{
    Begin("Read", "Read Memory");
    // The command can request more than rx_data_ holds.
    if (n > kRxCapacity) {
        Fail(fmt::format("Too many bytes to receive, command {}", command_name_),
             fmt::format("{} bytes requested, {} at most", n, kRxCapacity));
    }
    address_ = address;
    SendCommand(Command::kReadMemory);
    WaitForDfuAck(kAnswerTimeout);
    SendToDfu(GetAddressBytes(address));
    WaitForDfuAck(kAnswerTimeout);
    SendToDfu(GetReadCountBytes(n));
    WaitForDfuAck(kAnswerTimeout);
    return WaitForData(n, kAnswerTimeout);
}

void Stm32UartUpdater::CmdWrite(uint32_t address, std::span<std::byte const> const& data)
{
    if (data.empty()) {
        return;
    }
    Begin("Write", "Write Memory");
    for (size_t offset = 0; offset < data.size();) {
        auto const block = data.subspan(offset, std::min(data.size() - offset, kMaxBlock));
        WriteBlock(address + static_cast<uint32_t>(offset), block);
        offset += block.size();
        facts_.written += image_address_ ? block.size() : 0;
        if (offset % kProgressStep == 0) {
            progress_(State::kProgramming, static_cast<unsigned>(offset * 100 / data.size()));
        }
    }
}

void Stm32UartUpdater::WriteBlock(uint32_t address, std::span<std::byte const> block)
{
    auto const too_many = [this] {
        Fail(fmt::format("{} NACKs received, command {}", kMaxRefusals, command_name_),
             fmt::format("refused {} times (NACK)", kMaxRefusals + 1));
    };
    address_ = address;
    for (unsigned nacks = 0;; ++nacks, ++facts_.refused_blocks) {
        if (nacks > kMaxRefusals) {
            too_many();
        }
        while (!StartWrite(address)) {
            if (nacks >= kMaxRefusals) {
                too_many();
            }
            ++nacks;
            ++facts_.refused_blocks;
        }
        SendToDfu(GetWriteBytes(block));
        if (WaitForDfuAckNack(kAnswerTimeout)) {
            return;
        }
    }
}

bool Stm32UartUpdater::StartWrite(uint32_t address)
{
    SendCommand(Command::kWriteMemory);
    if (!WaitForDfuAckNack(kAnswerTimeout)) {
        return false;
    }
    SendToDfu(GetAddressBytes(address));
    return WaitForDfuAckNack(kAnswerTimeout);
}

void Stm32UartUpdater::CmdErase(std::span<std::byte const> const& pages)
{
    Stopwatch const stopwatch(waits_, facts_.erase_time);
    Begin("Erase", "Erase");
    SendCommand(Command::kErase);
    WaitForDfuAck(kAnswerTimeout);
    SendToDfu(GetEraseBytes(pages));
    WaitForDfuAck(kAnswerTimeout);
}

void Stm32UartUpdater::CmdEraseExt(std::span<uint16_t const> const& pages)
{
    Stopwatch const stopwatch(waits_, facts_.erase_time);
    Begin("Erase Ext", "Extended Erase");
    SendCommand(Command::kExtendedErase);
    WaitForDfuAck(kAnswerTimeout);
    SendToDfu(GetExtendedEraseBytes(pages));
    WaitForDfuAck(kExtendedEraseTimeout);
}

// ---- Sending and waiting ----

void Stm32UartUpdater::SendToDfu(std::span<std::byte const> const& data)
{
    if (!data.empty()) {
        uart_.Transmit(data);
        sent_at_ = waits_.now();
    }
}

void Stm32UartUpdater::SendCommand(Command command)
{
    SendToDfu(GetCommandBytes(command));
}

void Stm32UartUpdater::WaitForDfuAck(Milliseconds timeout)
{
    if (!WaitForDfuAckNack(timeout)) {
        Fail(fmt::format("NACK received, command {}", command_name_),
             fmt::format("refused (NACK) after {} ms", TimeSinceSent().count()));
    }
}

bool Stm32UartUpdater::WaitForDfuAckNack(Milliseconds timeout)
{
    auto const answer = std::to_integer<uint8_t>(WaitForData(1, timeout)[0]);
    if (!ack_learned_) {
        LearnAck(answer);
    }
    if (answer != ack_byte_ && answer != nack_byte_) {
        Fail(fmt::format("Invalid ACK/NACK received 0x{:02x}, command {}", answer, command_name_),
             fmt::format("0x{:02x} after {} ms, ACK 0x{:02x} or NACK 0x{:02x} expected", answer,
                         TimeSinceSent().count(), ack_byte_, nack_byte_));
    }
    return answer == ack_byte_;
}

void Stm32UartUpdater::LearnAck(uint8_t answer)
{
    // 0x79 and 0x1F are AN3155's pair. 0x75 and 0x3F are accepted as an alternative to it.
    switch (answer) {
        case 0x79:
            nack_byte_ = 0x1F;
            break;
        case 0x75:
            nack_byte_ = 0x3F;
            break;
        default:
            Fail(fmt::format("Invalid ACK byte setup 0x{:02x}, command {}", answer, command_name_),
                 fmt::format("0x{:02x} after {} ms, ACK 0x79 or 0x75 expected", answer,
                             TimeSinceSent().count()));
    }
    ack_byte_ = answer;
    ack_learned_ = true;
}

size_t Stm32UartUpdater::WaitForNBytesToReceive(Milliseconds timeout)
{
    auto const last = std::to_integer<size_t>(WaitForData(1, timeout)[0]);
    if (last >= kRxCapacity) {
        Fail(fmt::format("Too many bytes to receive, command {}", command_name_),
             fmt::format("{} bytes announced, {} at most", last + 1, kRxCapacity));
    }
    return last + 1;
}

std::span<std::byte const> Stm32UartUpdater::WaitForData(size_t n, Milliseconds timeout)
{
    rx_data_.clear();
    while (rx_data_.size() < n) {
        if (auto const value = rx_queue_.Pop()) {
            rx_data_.push_back(*value);
        } else if (!waits_.acquire(rx_signal_, timeout)) {
            Fail(fmt::format("receive timeout for {} bytes, command {}", n, command_name_),
                 DescribeMissing(n, rx_data_, timeout));
        }
    }
    if (auto const time = TimeSinceSent();
        n > 0 && (!facts_.slowest_answer || time > *facts_.slowest_answer)) {
        facts_.slowest_answer = time;
        facts_.slowest_request = request_;
    }
    return rx_data_;
}

void Stm32UartUpdater::OnByteReceived(std::byte value)
{
    rx_queue_.Push(value);
    rx_signal_.release(1);
}

}  // namespace stm32_updater
