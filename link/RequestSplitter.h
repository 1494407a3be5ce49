#pragma once
// Carries one of the engine's requests in several when the line damages long frames: a Program
// block as Program requests for consecutive parts of it, a Read as Reads of consecutive ranges
// whose answers are joined into one. Each part is an ordinary request, so an instrument needs
// nothing new for it; what is done to a part's payload on its way is no business of the split.
// Every other request goes whole.
#include "link/RequestPipeline.h"

#include <QByteArray>
#include <QList>

class RequestSplitter {
public:
    // The parts of the request, in address order, each with at most largestData bytes of data:
    // as equal as a multiple of AdaptiveFrameSize::Granule bytes allows, the last taking the rest.
    static QList<RequestPipeline::Request> split(const RequestPipeline::Request &request, int largestData);
    // The answer to a Read from its parts' answers, in order: the first part's that failed
    // (status and no data), or status 0 with the data of every part.
    static QByteArray joinedRead(const QList<QByteArray> &answers);
};
