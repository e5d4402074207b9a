#include <plexa_common/LoggerMutex.h>

#include <gtest/gtest.h>

namespace
{

TEST(LoggerMutex, IsOneForTheWholeProcessAndRecursive)
{
    Poco::Mutex& mutex = tarn::GetLoggerMutex();
    EXPECT_EQ(&mutex, &tarn::GetLoggerMutex());
    mutex.lock();
    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
    mutex.unlock();
}

} // namespace
