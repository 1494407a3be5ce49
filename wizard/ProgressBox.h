#pragma once
// A sunken box with a thick line in the highlight colour from its left edge to a given
// point: the current-operation and whole-run bars of the Upload step.
#include <QFrame>

class ProgressBox : public QFrame {
    Q_OBJECT
public:
    explicit ProgressBox(QWidget *parent = nullptr);
    // The line's end as a share of the inner width; not clamped (the box clips it).
    void setShare(double share);
    double share() const { return m_share; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    double m_share = 0;
};
