#pragma once

#include <QAbstractButton>
#include <functional>

namespace corvina {

// A button that shows only its image: no border, no background, no title. Its alpha value dims
// the whole button; pressing it darkens the image while the mouse is down.
class ImageButton : public QAbstractButton {
    Q_OBJECT

public:
    using Action = std::function<void(ImageButton* sender)>;

    explicit ImageButton(QWidget* parent = nullptr);

    // A named image resource (see Images), drawn at the button's size for the screen's pixel ratio.
    void setImage(const QString& name);
    QString imageName() const { return m_imageName; }

    qreal alphaValue() const { return m_alpha; }
    void setAlphaValue(qreal alpha);
    QColor backgroundColor() const { return m_background; }
    void setBackgroundColor(const QColor& color) { m_background = color; }
    bool isBordered() const { return false; }

    void setAction(Action action) { m_action = std::move(action); }

    QSize sizeHint() const override { return QSize(20, 20); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_imageName;
    qreal m_alpha = 1.0;
    QColor m_background = Qt::transparent;
    Action m_action;
};

} // namespace corvina
