#pragma once

#include <QObject>
#include <QPalette>
#include <QString>
#include <optional>

namespace corvina {

class ColorScheme;

// Light or dark as the desktop, for the Accounts window: the desktop's choice read from its
// settings portal (platform/ColorScheme, as the widget reads it) and followed while the window is
// open; `--appearance light` or `dark` fixes it. The window's controls take every colour from the
// palette set here (none of its own), so each text keeps the palette's contrast in either.
//
// Where the desktop states no preference, the palette of its own Qt theme is left alone.
class AccountsAppearance : public QObject {
    Q_OBJECT
public:
    enum class Mode { Auto, Light, Dark };

    // "auto", "light" or "dark"; nothing for another word.
    static std::optional<Mode> parse(const QString& word);

    explicit AccountsAppearance(Mode mode, QObject* parent = nullptr);

    // A fixed mode is applied at once; auto asks the desktop and follows it.
    void start();

    // The application's style and palette made light or dark.
    static void apply(bool dark);
    static QPalette darkPalette();
    static QPalette lightPalette();

private:
    Mode m_mode;
    ColorScheme* m_scheme = nullptr;
};

} // namespace corvina
