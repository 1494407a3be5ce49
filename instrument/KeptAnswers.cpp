#include "instrument/KeptAnswers.h"

#include <algorithm>

namespace {
// How many steps a lies past b, in the numbers 1..255.
int stepsPast(uint8_t a, uint8_t b)
{
    return (int(a) - int(b) + 255) % 255;
}
} // namespace

std::optional<QByteArray> KeptAnswers::answerTo(const Frame &request) const
{
    for (const Answered &answered : m_answered)
        if (answered.request == request)
            return answered.answer;
    return std::nullopt;
}

void KeptAnswers::note(uint8_t sequence)
{
    if (m_newest) {
        const int behind = stepsPast(*m_newest, sequence);
        if (behind >= 1 && behind < Count)
            return; // overtaken by later requests while it was sent again
    }
    m_newest = sequence;
    // Another request of the same number, or one too far back to be sent again, is over.
    std::erase_if(m_answered, [&](const Answered &a) {
        const int distance = stepsPast(sequence, a.request.sequence);
        return distance == 0 || distance >= Count;
    });
}

void KeptAnswers::keep(const Frame &request, const QByteArray &answer)
{
    m_answered.push_back({request, answer});
    if (m_answered.size() > size_t(Count))
        m_answered.pop_front();
}

void KeptAnswers::forget()
{
    m_answered.clear();
    m_newest.reset();
}
