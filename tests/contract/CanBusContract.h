#ifndef TARN_TESTS_CONTRACT_CAN_BUS_CONTRACT_H
#define TARN_TESTS_CONTRACT_CAN_BUS_CONTRACT_H

#include <plexa_can/iCanAsyncDispatcher.h>

#include <cstddef>
#include <functional>
#include <string>
#include <tr1/memory>
#include <vector>

/// What every bus has to do for the layers above it, as tests of GoogleTest. They need the headers
/// of the contract and nothing else of a lower layer, so anybody can try his own with them.
namespace tarn::contract
{

/// A bus to try, and what it can do. A test that needs what a bus cannot do is not made.
struct CanBusUnderTest {
    using Connection = std::tr1::shared_ptr<iCanAsyncDispatcher>;

    /// Letters and digits. The tests are called CanBusContract/NAME.*
    std::string name;

    /// Makes 2 or 3 connections to one bus on which nobody else sends. Called for every test. The
    /// bus must take 1,200 frames in a row, and lose none, from senders that know no pause.
    std::function<std::vector<Connection>(std::size_t count)> connect;

    bool keepsOrder = true;            ///< the frames of one sender arrive in its order
    bool hearsOnlyOthers = true;       ///< a connection does not hear what it sent itself
    bool connectsThree = true;         ///< else no more than 2 connections are asked for
    bool carriesElevenBits = true;     ///< frames with 11-bit identifiers
    bool carriesRemoteRequests = true; ///< frames without data that ask for one
    bool carriesErrorFrames = true;    ///< what is sent as an error frame arrives as one
    bool catchesExceptions = true;     ///< a handler may throw
    bool forgetsUnheard = true;        ///< what comes while there is no handler is not kept for one
    bool mayGoInsideItsHandler = true; ///< the last owner may let a connection go inside a handler
};

/// Makes the tests. To be called before RUN_ALL_TESTS(), most simply to set a global variable.
/// @return true
bool AddCanBusContract(const CanBusUnderTest& bus);

/// Makes tests of a TarnAsyncDispatcher over the bus. Stands in a source of its own, which needs
/// libplexa_tarn.
/// @return true
bool AddTarnContract(const CanBusUnderTest& bus);

} // namespace tarn::contract

#endif
