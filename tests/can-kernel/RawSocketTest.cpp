// The least that tests of a bus lean on: a frame written to one socket arrives at another.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

class RawSocket
{
public:
    explicit RawSocket(char const* interface) : mSocket(socket(AF_CAN, SOCK_RAW, CAN_RAW))
    {
        sockaddr_can address{};
        address.can_family = AF_CAN;
        address.can_ifindex = static_cast<int>(if_nametoindex(interface));
        mBound = bind(mSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }

    ~RawSocket() { close(mSocket); }

    RawSocket(RawSocket const&) = delete;
    RawSocket& operator=(RawSocket const&) = delete;

    bool IsBound() const { return mBound; }

    bool Write(can_frame const& frame) const
    {
        return write(mSocket, &frame, sizeof frame) == sizeof frame;
    }

    bool Read(can_frame& frame) const
    {
        pollfd readable{mSocket, POLLIN, 0};
        return poll(&readable, 1, 60'000) == 1 &&
               read(mSocket, &frame, sizeof frame) == sizeof frame;
    }

private:
    int mSocket;
    bool mBound = false;
};

} // namespace

TEST(RawSocket, FrameArrivesAtAnotherSocketByteForByte)
{
    RawSocket const sender("vcan0");
    RawSocket const receiver("vcan0");
    ASSERT_TRUE(sender.IsBound() && receiver.IsBound()) << std::strerror(errno);

    can_frame frame{};
    frame.can_id = 0x0F800001U | CAN_EFF_FLAG;
    frame.can_dlc = 2;
    frame.data[0] = 0x20;
    frame.data[1] = 0xFF;
    ASSERT_TRUE(sender.Write(frame)) << std::strerror(errno);

    can_frame received{};
    ASSERT_TRUE(receiver.Read(received)) << std::strerror(errno);
    std::array<unsigned char, sizeof received> bytes{};
    std::memcpy(bytes.data(), &received, bytes.size());
    // Identifier with bit 31 for the extended format, little-endian; data length; padding; data.
    EXPECT_EQ(bytes,
              (std::array<unsigned char, 16>{0x01, 0x00, 0x80, 0x8F, 2, 0, 0, 0, 0x20, 0xFF}));
}

TEST(RawSocket, InterfaceThatIsNotThereCannotBeBound)
{
    errno = 0;
    EXPECT_EQ(if_nametoindex("vcan9"), 0U);
    EXPECT_EQ(errno, ENODEV);
}
