#pragma once
// The instrument's memory of its recent answers, by which a request sent again (its answer
// lost or damaged) is answered again instead of carried out twice. It keeps the answers of the
// Count most recent numbers, the newest included; numbers run 1..255, so distances between
// them count modulo 255. A request that is not answered from it is either an earlier one whose
// first send never arrived intact (1 to Count - 1 behind the newest: the newest stays), or it
// becomes the newest; Hello starts a new count.
#include "link/Frame.h"

#include <QByteArray>
#include <deque>
#include <optional>

class KeptAnswers {
public:
    static constexpr int Count = 8;

    // The kept answer to a request equal in number and content.
    std::optional<QByteArray> answerTo(const Frame &request) const;
    // A request about to be carried out.
    void note(uint8_t sequence);
    void keep(const Frame &request, const QByteArray &answer);
    // Forgets every answer; the next number noted becomes the newest.
    void forget();

private:
    struct Answered {
        Frame request;
        QByteArray answer;
    };

    std::deque<Answered> m_answered;
    std::optional<uint8_t> m_newest;
};
