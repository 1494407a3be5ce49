// linux-gpib's libgpib as the tests need it, loaded in its place. Its calls behave as the
// library's do when no instrument talks: ibrd blocks for the device's timeout (the 300 ms the
// transport asks for) and fails with EABO. fakeGpibScript makes ibdev or ibwrt fail with a
// given iberr; fakeGpibCallsOn says how many calls a thread made.
#include <atomic>
#include <chrono>
#include <pthread.h>
#include <thread>

extern "C" {
int ibsta = 0;
int iberr = 0;
long ibcntl = 0;
}

namespace {
std::atomic<int> ibdevError{0}, ibwrtError{0}, reads{0}, callsOnWatched{0};
std::atomic<pthread_t> watched{};

int finish(int error) // as every call ends: the status and error of the calling thread
{
    callsOnWatched += pthread_equal(pthread_self(), watched.load()) ? 1 : 0;
    iberr = error;
    return ibsta = error ? 0x8000 : 0; // ERR
}
} // namespace

extern "C" {
void fakeGpibScript(int ibdevFails, int ibwrtFails)
{
    ibdevError = ibdevFails;
    ibwrtError = ibwrtFails;
}
int fakeGpibCallsOn(pthread_t thread) // since that thread was first named here
{
    if (!pthread_equal(watched.exchange(thread), thread))
        callsOnWatched = 0;
    return callsOnWatched;
}
int fakeGpibReads() { return reads; }
int ibdev(int, int, int, int, int, int) { return finish(ibdevError) ? -1 : 1; }
int ibwrt(int, const void *, long count)
{
    ibcntl = ibwrtError ? 0 : count;
    return finish(ibwrtError);
}
int ibrd(int, void *, long)
{
    ++reads;
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ibcntl = 0;
    return finish(6); // EABO
}
int ibtmo(int, int) { return finish(0); }
int ibonl(int, int) { return finish(0); }
}
