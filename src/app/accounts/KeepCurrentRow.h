#pragma once

#include <QString>
#include <QWidget>

class QCheckBox;
class QLabel;

namespace corvina {

class BridgeUnit;

// "Keep my mail current": a switch that enables and starts the bridge's systemd user unit (and
// stops and disables it), with a line under it saying whether the bridge runs, followed live.
// Where the user has no systemd, the switch is off and disabled and the line says how to start
// the bridge instead.
class KeepCurrentRow : public QWidget {
    Q_OBJECT
public:
    explicit KeepCurrentRow(BridgeUnit* unit, QWidget* parent = nullptr);

    QCheckBox* toggle() const { return m_switch; }
    // The line under the switch, as a screen reader gets it (the command in it unbroken).
    QString stateText() const { return m_text; }

private:
    void update();
    QString describe() const;

    BridgeUnit* m_unit;
    QCheckBox* m_switch = nullptr;
    QLabel* m_state = nullptr;
    QString m_text;
    bool m_switchingOn = false;
};

} // namespace corvina
