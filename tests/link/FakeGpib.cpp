// linux-gpib's libgpib as the tests need it, loaded in its place. Its calls behave as the
// library's do when no instrument talks: ibrd blocks for the device's timeout (the 300 ms the
// transport asks for) and fails with EABO. fakeGpibScript makes ibdev or ibwrt fail with a
// given iberr; fakeGpibCallsOn says how many calls a thread made. fakeGpibAnswer puts an
// instrument at the address that makes an answer of each message written, still at work on
// it at the next ibrd (which returns an empty frame) and ready at the one after.
#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <string>
#include <thread>

extern "C" {
int ibsta = 0;
int iberr = 0;
long ibcntl = 0;
}

namespace {
std::atomic<int> ibdevError{0}, ibwrtError{0}, reads{0}, callsOnWatched{0};
std::atomic<pthread_t> watched{};
using Answerer = std::string (*)(const std::string &written);
std::atomic<Answerer> answerer{nullptr};
std::mutex talkerLock;
std::string working, ready; // the instrument's answers

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
void fakeGpibAnswer(Answerer answer)
{
    answerer = answer;
    const std::lock_guard lock(talkerLock);
    working.clear();
    ready.clear();
}
int ibdev(int, int, int, int, int, int) { return finish(ibdevError) ? -1 : 1; }
int ibwrt(int, const void *data, long count)
{
    ibcntl = ibwrtError ? 0 : count;
    if (const Answerer answer = answerer; answer && !ibwrtError) {
        const std::lock_guard lock(talkerLock);
        working += answer(std::string(static_cast<const char *>(data), size_t(count)));
    }
    return finish(ibwrtError);
}
int ibrd(int, void *buffer, long count)
{
    ++reads;
    if (!answerer) {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ibcntl = 0;
        return finish(6); // EABO
    }
    const std::lock_guard lock(talkerLock);
    const std::string message = ready.empty() ? std::string(2, '\xC0') : ready.substr(0, size_t(count));
    ready.erase(0, message.size());
    ready += working;
    working.clear();
    std::memcpy(buffer, message.data(), message.size());
    ibcntl = long(message.size());
    return finish(0);
}
int ibtmo(int, int) { return finish(0); }
int ibonl(int, int) { return finish(0); }
}
