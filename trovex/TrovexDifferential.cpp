// Writing only what is missing: where the transfer program answers range checksums, the layer
// asks, before the first erase, for the CRC-32 of every erase unit and programmed range of the
// engine's plan, then answers at once, without sending them, the erases and blocks whose
// result the flash holds already. The engine's requests, answers and log stay as they are.
#include "trovex/Trovex.h"

#include "trovex/DifferentialPlan.h"

void Trovex::AnnounceFlashPlan(const FlashPlan &plan)
{
    forgetPlan();
    if (!m_abilities.rangeChecksums)
        return;
    if (std::optional<DifferentialPlan> made = DifferentialPlan::make(plan))
        m_plan = std::make_unique<DifferentialPlan>(std::move(*made));
    m_planArchitecture = plan.architecture;
}

void Trovex::forgetPlan()
{
    m_plan.reset();
    m_surveyed = false;
    m_survey.reset();
    m_eraseParts.clear();
}

bool Trovex::surveyFirst(std::function<void()> request)
{
    if (!m_plan || m_surveyed || !m_pipeline)
        return false;
    m_survey = Survey{0, std::move(request)};
    askNextCheck();
    return true;
}

void Trovex::askNextCheck()
{
    const std::vector<DifferentialPlan::Check> &checks = m_plan->checks();
    if (m_survey->next < checks.size()) {
        const DifferentialPlan::Range range = checks[m_survey->next].range;
        submit({Kind::RangeCrc, Protocol::RangeCrc, Protocol::Writer().u8(m_planArchitecture).u32(range.address).u32(range.length).done()});
        return;
    }
    m_surveyed = true;
    const std::function<void()> then = std::move(m_survey->then);
    m_survey.reset();
    then();
}

void Trovex::onSurveyAnswer(const QByteArray &payload)
{
    Protocol::Reader answer(payload);
    const uint16_t status = answer.u16();
    const uint32_t crc = answer.u32();
    // A range the instrument cannot sum is written as if it differed.
    m_plan->found(m_survey->next, status == Protocol::Status::Ok && answer.complete() ? std::optional<uint32_t>(crc) : std::nullopt);
    ++m_survey->next;
    askNextCheck();
}

void Trovex::answerAtOnce(Kind kind, const QByteArray &payload)
{
    QMetaObject::invokeMethod(this, [this, kind, payload] { onAnswered(kind, payload); }, Qt::QueuedConnection);
}
