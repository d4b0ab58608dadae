#pragma once

#include <QString>

namespace corvina {

// One column of a table: an identifier, a width, a header text, whether it can be edited.
class TableColumn {
public:
    explicit TableColumn(QString identifier) : m_identifier(std::move(identifier)) {}

    const QString& identifier() const { return m_identifier; }
    qreal width() const { return m_width; }
    void setWidth(qreal width) { m_width = width; }
    const QString& headerText() const { return m_headerText; }
    void setHeaderText(const QString& text) { m_headerText = text; }
    bool isEditable() const { return m_editable; }
    void setEditable(bool editable) { m_editable = editable; }

private:
    QString m_identifier;
    qreal m_width = 100;
    QString m_headerText;
    bool m_editable = true;
};

} // namespace corvina
