// The record's decoded picture: the one part of ExtensionMessage that uses Qt Gui, in a file of its
// own so that a program that never asks for a picture (corvina-today --list) links none of it.

#include "ExtensionMessage.h"
#include "platform/ImageDecoder.h"
#include "platform/Log.h"

#include <utility>

namespace corvina {

namespace {

// The sender's picture from the avatar's bytes: null for bytes that are no readable picture,
// silently; a picture over the bound is refused with a line, as that is no accident.
std::shared_ptr<const QImage> avatarImage(const QByteArray& bytes) {
    if (bytes.isEmpty()) {
        return nullptr;
    }
    const ImageDecoder::Result decoded = ImageDecoder::decode(bytes, ExtensionMessage::MaximumAvatarPixels);
    if (!decoded.refusal.isEmpty()) {
        Log::write(QStringLiteral("ExtensionMessage avatar %@"), {decoded.refusal});
        return nullptr;
    }
    if (decoded.image.isNull()) {
        return nullptr;
    }
    const int side = ExtensionMessage::KeptAvatarSide;
    if (decoded.image.width() > side || decoded.image.height() > side) {
        return std::make_shared<const QImage>(
            decoded.image.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    }
    return std::make_shared<const QImage>(decoded.image);
}

} // namespace

QImage ExtensionMessage::image() const {
    Avatar* avatar = m_avatar.ifMade();
    if (avatar == nullptr) {
        return QImage(); // no avatar was ever given
    }
    QMutexLocker lock(&avatar->lock);
    const AvatarState state = checkAvatarLocked(*avatar);
    if (state == AvatarState::Plausible || state == AvatarState::Unclear) {
        avatar->image = avatarImage(QByteArray::fromBase64(avatar->text));
        avatar->text.clear();
        avatar->state = AvatarState::Decoded;
    }
    return avatar->image ? *avatar->image : QImage();
}

void ExtensionMessage::setImage(QImage image) {
    std::shared_ptr<const QImage> picture =
        image.isNull() ? nullptr : std::make_shared<const QImage>(std::move(image));
    Avatar& avatar = m_avatar.made();
    QMutexLocker lock(&avatar.lock);
    std::swap(avatar.image, picture);
    avatar.text.clear();
    avatar.state = AvatarState::Decoded;
    // the old picture is released after the lock
    lock.unlock();
}

} // namespace corvina
