#ifndef PLEXA_CAN_SRC_CAN_SOCKET_H
#define PLEXA_CAN_SRC_CAN_SOCKET_H

#include "CanSystem.h"

#include <plexa_can/CanMessage.h>
#include <plexa_can/SocketCanDispatcher.h>

#include <array>
#include <atomic>
#include <functional>
#include <linux/can.h>
#include <mutex>
#include <string>

namespace tarn
{

/// A raw CAN socket bound to one interface. Sending may be done by several threads, receiving by
/// one.
class CanSocket
{
public:
    /// Opens and binds; nothing is received until Listen(true).
    /// @throws CanException with cause and remedy
    CanSocket(iCanSystem& system, std::string interface,
              const SocketCanDispatcher::Options& options);
    ~CanSocket();
    CanSocket(const CanSocket&) = delete;
    CanSocket& operator=(const CanSocket&) = delete;

    int Descriptor() const { return mDescriptor; }
    unsigned int InterfaceIndex() const { return mInterfaceIndex; }

    /// Binds to the interface of the same name that has got another index. The kernel forgets the
    /// filters of a socket whose interface goes, so they are set anew. False when the interface has
    /// gone again meanwhile.
    bool Rebind(unsigned int interfaceIndex);

    /// Lets in what the options say, or nothing. Where the interface has just gone, that counts
    /// from the next Rebind() on.
    /// @throws CanException when the kernel refuses to let frames in
    void Listen(bool on);

    using Receiver = std::function<void(const CanMessage&)>;

    /// Reads what is there, at most a batch.
    /// @return 0, or the error number
    int ReadBatch();

    /// Gives each frame of the batch to receive; what is no classical CAN frame is counted in
    /// oddities.
    void TakeBatch(const Receiver& receive, unsigned long long& oddities);

    /// Reads all that is there without disturbing the batch, as TakeBatch() does but without time
    /// stamps. Not while ReadBatch() is running.
    void Discard(const Receiver& discard, unsigned long long& oddities) const;

    /// @return 0, or the error number
    int Send(const CanMessage& frame);

    /// Frames that the kernel had dropped in all, modulo 2^32, when the last batch came in. For the
    /// thread that receives.
    unsigned int DropsAtLastBatch() const { return mDrops; }

    /// The same as of now; false where the kernel (before 4.12) cannot tell. For any thread.
    bool AskForDrops(unsigned int& drops) const;

private:
    static constexpr std::size_t BATCH_SIZE = 32;
    static constexpr std::size_t CONTROL_SIZE = 256;
    /// Batches of one after a batch that held no more.
    static constexpr unsigned int SINGLES = 8;

    struct Slot {
        canfd_frame frame;
        iovec part;
        alignas(cmsghdr) std::array<char, CONTROL_SIZE> control;
    };

    void Open();
    void Bind();
    void SetOptions();
    bool BindTo(unsigned int interfaceIndex);
    bool SetFilters();
    [[noreturn]] void RefuseFilters(int error);
    void PrepareBatch();
    std::size_t ChooseBatchSize();
    void ReadControl(msghdr& message, CanMessage& frame);
    [[noreturn]] void Refuse(const std::string& what, int error, const std::string& remedy);
    std::string OtherInterfaces();
    template <typename Value>
    bool SetOption(int level, int name, const Value& value)
    {
        return mSystem.SetOption(mDescriptor, level, name, &value, sizeof value) == 0;
    }

    iCanSystem& mSystem;
    const std::string mInterface;
    const SocketCanDispatcher::Options mOptions;
    int mDescriptor = -1;
    std::mutex mFilterMutex; ///< guards mListening, and the filters in the kernel
    bool mListening = false;
    std::atomic<unsigned int> mInterfaceIndex{0};
    unsigned int mDrops = 0;
    std::array<Slot, BATCH_SIZE> mSlots = {};
    std::array<mmsghdr, BATCH_SIZE> mMessages = {};
    std::size_t mBatch = 0;    ///< messages in the batch
    std::size_t mAsked = 0;    ///< messages that it could have had
    unsigned int mSingles = 0; ///< batches of one to come
};

} // namespace tarn

#endif
