// The DFU device's node as a host's USB library uses it, ioctl by ioctl. This process needs
// umockdev's preload library.
#include "simulator/host/usb_dfu_port.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "tests/simulator/bootloader_client.h"
#include "tests/simulator/dfu_unit_test_support.h"
#include "tests/simulator/port_test_support.h"

namespace simulator {
namespace {

using test::B;
using test::Bytes;

constexpr uint8_t kToInterface = 0x21;
constexpr uint8_t kFromInterface = 0xA1;

// What an ioctl came to: 0 or the error.
int ErrorOf(int result)
{
    return result < 0 ? errno : 0;
}

// One control request, in the memory that the kernel would read and write.
struct Request {
    explicit Request(Bytes setup_and_data) : buffer(std::move(setup_and_data))
    {
        urb->type = USBDEVFS_URB_TYPE_CONTROL;
        urb->buffer = buffer.data();
        urb->buffer_length = static_cast<int>(buffer.size());
        urb->status = 1;  // none that a kernel gives
    }

    Bytes Data() const { return {buffer.begin() + 8, buffer.begin() + 8 + urb->actual_length}; }

    Bytes buffer;
    std::unique_ptr<usbdevfs_urb> urb = std::make_unique<usbdevfs_urb>();
};

Request MakeGetState()
{
    return Request(B({kFromInterface, 5, 0, 0, 0, 0, 1, 0, 0xEE}));
}

class Node {
public:
    explicit Node(std::string const& path) : fd_(open(path.c_str(), O_RDWR | O_CLOEXEC)) {}
    ~Node() { close(fd_); }
    Node(Node const&) = delete;
    Node& operator=(Node const&) = delete;

    bool IsOpen() const { return fd_ >= 0; }
    int Submit(Request& request)
    {
        return ErrorOf(ioctl(fd_, USBDEVFS_SUBMITURB, request.urb.get()));
    }
    int Discard(Request& request)
    {
        return ErrorOf(ioctl(fd_, USBDEVFS_DISCARDURB, request.urb.get()));
    }
    // The error; or 0, and the request block that is given back in Reaped().
    int Reap() { return ErrorOf(ioctl(fd_, USBDEVFS_REAPURBNDELAY, &reaped_)); }
    usbdevfs_urb const* Reaped() const { return reaped_; }
    template <typename Argument>
    int Call(unsigned long request, Argument* argument)
    {
        return ErrorOf(ioctl(fd_, request, argument));
    }

private:
    int fd_;
    usbdevfs_urb* reaped_ = nullptr;
};

class UsbDfuPortTest : public testing::Test {
protected:
    // Who opens the node is known to the device for certain once it has talked to it.
    void SetUp() override
    {
        uint32_t capabilities = 0;
        ASSERT_EQ(node_.Call(USBDEVFS_GET_CAPABILITIES, &capabilities), 0);
    }

    std::string NodePath() { return plugged_.unit.Status().device_path; }

    test::PluggedUnit plugged_{test::DfuOptions()};
    Node node_{NodePath()};
};

TEST_F(UsbDfuPortTest, AnswersARequestInItsSubmittersMemory)
{
    auto request = MakeGetState();
    EXPECT_EQ(node_.Submit(request), 0);
    EXPECT_EQ(node_.Reap(), 0);
    EXPECT_EQ(node_.Reaped(), request.urb.get());
    EXPECT_EQ(request.urb->status, 0);
    EXPECT_EQ(request.Data(), B({2}));
    EXPECT_EQ(node_.Reap(), EAGAIN) << "nothing is returned twice";
}

TEST_F(UsbDfuPortTest, CutsAnAnswerToTheRoomThatTheHostHas)
{
    // GET_DESCRIPTOR, string 2, of which the host wants four bytes.
    Request request(B({0x80, 6, 2, 3, 0x09, 0x04, 4, 0, 0, 0, 0, 0, 0xEE}));

    node_.Submit(request);
    node_.Reap();

    EXPECT_EQ(request.Data(), B({36, 3, 'S', 0}));
    EXPECT_EQ(request.buffer.back(), std::byte{0xEE});
}

TEST_F(UsbDfuPortTest, StallsWhatTheUnitDoesNotKnow)
{
    // CLRSTATUS without an error; a string that there is not; a vendor's request.
    for (auto const& setup :
         {B({kToInterface, 4, 0, 0, 0, 0, 0, 0}), B({0x80, 6, 99, 3, 0x09, 0x04, 0, 0}),
          B({0xC0, 1, 0, 0, 0, 0, 0, 0})}) {
        Request request(setup);
        node_.Submit(request);
        EXPECT_EQ(node_.Reap(), 0);
        EXPECT_EQ(request.urb->status, -EPIPE);
        EXPECT_EQ(request.urb->actual_length, 0);
    }
}

TEST_F(UsbDfuPortTest, ReturnsAnUnansweredRequestWhenItIsDiscarded)
{
    plugged_.unit.SetSilent(true);
    auto request = MakeGetState();
    EXPECT_EQ(node_.Submit(request), 0);
    EXPECT_EQ(node_.Reap(), EAGAIN);

    EXPECT_EQ(node_.Discard(request), 0);

    EXPECT_EQ(node_.Reap(), 0);
    EXPECT_EQ(node_.Reaped(), request.urb.get());
    EXPECT_EQ(request.urb->status, -ENOENT);
    EXPECT_EQ(node_.Discard(request), EINVAL);
}

TEST_F(UsbDfuPortTest, ReturnsAnUnansweredRequestWhenTheUnitIsPulledOutAndIsGoneThen)
{
    plugged_.unit.SetSilent(true);
    auto request = MakeGetState();
    node_.Submit(request);
    auto const path = NodePath();

    plugged_.unit.Unplug();

    EXPECT_EQ(node_.Reap(), 0);
    EXPECT_EQ(request.urb->status, -ESHUTDOWN);
    EXPECT_EQ(node_.Reap(), ENODEV);
    EXPECT_EQ(node_.Submit(request), ENODEV);
    EXPECT_FALSE(Node(path).IsOpen());

    plugged_.unit.Plug();
    EXPECT_NE(NodePath(), path);
    EXPECT_EQ(node_.Submit(request), ENODEV) << "an earlier client";
    EXPECT_EQ(Node(NodePath()).Submit(request), 0);
}

TEST_F(UsbDfuPortTest, StaysOpenAndSilentWhenItFades)
{
    plugged_.unit.Fade();

    auto request = MakeGetState();
    EXPECT_EQ(node_.Submit(request), 0);
    EXPECT_EQ(node_.Reap(), EAGAIN);
    EXPECT_FALSE(plugged_.unit.Status().plugged);
}

TEST_F(UsbDfuPortTest, CountsClaimsAndForgetsADownloadByAReset)
{
    unsigned interface = 0;
    EXPECT_EQ(node_.Call(USBDEVFS_CLAIMINTERFACE, &interface), 0);
    usbdevfs_setinterface alternate{0, 2};
    EXPECT_EQ(node_.Call(USBDEVFS_SETINTERFACE, &alternate), 0);
    EXPECT_EQ(plugged_.unit.Status().connects, 1U);
    Request download(B({kToInterface, 1, 0, 0, 0, 0, 1, 0, 0x41}));
    EXPECT_EQ(node_.Submit(download), 0);
    EXPECT_EQ(node_.Call<void>(USBDEVFS_RESET, nullptr), 0);

    auto request = MakeGetState();
    node_.Submit(request);
    EXPECT_EQ(node_.Reap(), 0);
    EXPECT_EQ(node_.Reaped(), download.urb.get());
    EXPECT_EQ(node_.Reap(), 0);
    EXPECT_EQ(request.Data(), B({2}));
}

TEST_F(UsbDfuPortTest, RefusesWhatItCannotCarry)
{
    auto request = MakeGetState();
    request.urb->type = USBDEVFS_URB_TYPE_BULK;
    EXPECT_EQ(node_.Submit(request), EINVAL);
    Request shorter(B({kFromInterface, 5, 0}));
    EXPECT_EQ(node_.Submit(shorter), EINVAL);
    unsigned number = 0;
    EXPECT_EQ(node_.Call(USBDEVFS_CLEAR_HALT, &number), ENOTTY);
    uint32_t capabilities = 0;
    EXPECT_EQ(node_.Call(USBDEVFS_GET_CAPABILITIES, &capabilities), 0);
    EXPECT_EQ(capabilities, static_cast<uint32_t>(USBDEVFS_CAP_REAP_AFTER_DISCONNECT));
}

TEST_F(UsbDfuPortTest, RefusesToBeOpenedWhileItIsBlockedAndChangesTheRightsOfItsNode)
{
    namespace fs = std::filesystem;
    plugged_.unit.SetBlocked(true);
    plugged_.unit.SetBlocked(true);
    EXPECT_FALSE(Node(NodePath()).IsOpen());
    plugged_.unit.SetBlocked(false);
    auto request = MakeGetState();
    EXPECT_EQ(Node(NodePath()).Submit(request), 0);
    plugged_.unit.SetMode(0600);
    EXPECT_EQ(fs::status(plugged_.testbed->Root() + NodePath()).permissions(),
              fs::perms::owner_read | fs::perms::owner_write);

    plugged_.unit.SetBlocked(true);
    plugged_.unit.Unplug();
    EXPECT_THROW(plugged_.unit.SetBlocked(true), std::runtime_error);
    EXPECT_THROW(plugged_.unit.SetMode(0600), std::system_error);
}

}  // namespace
}  // namespace simulator
