#include "KeepCurrentRow.h"

#include "bridge/service/BridgeUnit.h"
#include "platform/LineBreaks.h"
#include "platform/Localization.h"

#include <QCheckBox>
#include <QLabel>
#include <QVBoxLayout>

namespace corvina {

KeepCurrentRow::KeepCurrentRow(BridgeUnit* unit, QWidget* parent) : QWidget(parent), m_unit(unit) {
    m_switch = new QCheckBox(Localization::text("&Keep my mail current"));
    m_switch->setAccessibleName(Localization::text("Keep my mail current"));
    m_state = new QLabel;
    m_state->setWordWrap(true);
    m_state->setTextFormat(Qt::PlainText);
    m_state->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_switch);
    layout->addWidget(m_state);

    // clicked, not toggled: only the person's own click switches the unit, never update() setting
    // the box to what systemd says.
    connect(m_switch, &QCheckBox::clicked, this, [this](bool on) {
        m_switchingOn = on;
        if (on)
            m_unit->enable();
        else
            m_unit->disable();
    });
    connect(m_unit, &BridgeUnit::changed, this, &KeepCurrentRow::update);
    update();
}

QString KeepCurrentRow::describe() const {
    const QString command = BridgeUnit::manualCommand();
    if (!m_unit->checked())
        return Localization::text("Asking systemd whether the bridge runs…");
    if (!m_unit->available() && !m_unit->error().isEmpty())
        return Localization::text("%1. Start the bridge yourself: run %2 in a terminal.")
            .arg(m_unit->error(), command);
    if (!m_unit->available())
        return Localization::text(
                   "There is no systemd for your user here, so this window cannot start the "
                   "bridge. Start it yourself: run %1 in a terminal, or add it to the programs "
                   "your desktop starts at login.")
            .arg(command);
    if (!m_unit->installed())
        return Localization::text(
                   "The bridge's systemd unit is not installed (%1). Start the bridge yourself: "
                   "run %2 in a terminal.")
            .arg(m_unit->error(), command);
    QString state;
    if (m_unit->busy())
        state = m_switchingOn ? Localization::text("Starting the bridge…")
                              : Localization::text("Stopping the bridge…");
    else if (m_unit->activeState() == QLatin1String("active"))
        state = m_unit->enabled()
                    ? Localization::text(
                          "The bridge is running and keeps your mail current; it starts at every login.")
                    : Localization::text("The bridge is running and keeps your mail current.");
    else if (m_unit->activeState() == QLatin1String("activating") ||
             m_unit->activeState() == QLatin1String("reloading"))
        state = Localization::text("The bridge is starting…");
    else if (m_unit->activeState() == QLatin1String("deactivating"))
        state = Localization::text("The bridge is stopping…");
    else if (m_unit->activeState() == QLatin1String("failed"))
        state = Localization::text("The bridge stopped with an error; its log says why: %1")
                    .arg(QStringLiteral("journalctl --user -u corvina-mail-bridge"));
    else
        state = Localization::text("The bridge is not running: your mail is not kept current.");
    if (!m_unit->error().isEmpty() && !m_unit->busy())
        return m_unit->error() + QLatin1Char(' ') + state;
    return state;
}

void KeepCurrentRow::update() {
    // Off and out of reach where it cannot work; on when the unit starts at every login.
    m_switch->setEnabled(m_unit->checked() && m_unit->available() && m_unit->installed() && !m_unit->busy());
    if (!m_unit->busy())
        m_switch->setChecked(m_unit->available() && m_unit->enabled());
    m_text = describe();
    m_state->setText(LineBreaks::unbrokenAtHyphens(m_text));
    m_state->setAccessibleName(m_text);
    m_switch->setAccessibleDescription(m_text);
}

} // namespace corvina
