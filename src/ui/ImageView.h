#pragma once

#include <QIcon>
#include <QImage>
#include <QWidget>

namespace corvina {

// Shows one image scaled down proportionally to fit, centred: either a named image resource
// (rendered for the screen's pixel ratio) or a picture such as a sender's avatar.
class ImageView : public QWidget {
    Q_OBJECT

public:
    explicit ImageView(QWidget* parent = nullptr);

    // A named resource of the widget (see Images).
    void setImageNamed(const QString& name);
    void setImage(const QImage& image);

    // The name of the resource shown, or empty when a picture is shown.
    QString imageName() const { return m_name; }
    // The picture shown, or a null image when a resource is shown.
    QImage image() const { return m_image; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_name;
    QImage m_image;
};

} // namespace corvina
