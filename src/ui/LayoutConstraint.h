#pragma once

#include <QObject>

namespace corvina {

// One layout constraint of the form "item.attribute = multiplier x constant", for the one place
// where the widget changes a constraint after layout: the table's height. Whoever lays the item
// out listens to changed().
class LayoutConstraint : public QObject {
    Q_OBJECT

public:
    enum Attribute { Width = 7, Height = 8 };

    LayoutConstraint(Attribute attribute, qreal multiplier, qreal constant, QObject* parent = nullptr)
        : QObject(parent), m_attribute(attribute), m_multiplier(multiplier), m_constant(constant) {}

    Attribute attribute() const { return m_attribute; }
    qreal multiplier() const { return m_multiplier; }
    qreal constant() const { return m_constant; }
    // The length the constraint asks for.
    qreal value() const { return m_multiplier * m_constant; }

    void setConstant(qreal constant) {
        if (constant == m_constant)
            return;
        m_constant = constant;
        emit changed();
    }

signals:
    void changed();

private:
    Attribute m_attribute;
    qreal m_multiplier;
    qreal m_constant;
};

} // namespace corvina
