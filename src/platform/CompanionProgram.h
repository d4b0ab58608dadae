#pragma once

#include <QString>
#include <QStringList>

namespace corvina {

// Another program of this project, started from the running one (the widget starts the Accounts
// window): found in the running program's own folder first, where a build or an install keeps the
// programs together, else on PATH.
class CompanionProgram {
public:
    // The program's path, or empty when neither place has it.
    static QString find(const QString& name);
    // Starts `name` with `arguments` and leaves it running: it is the person's window, not ours.
    // False, with `error` set to one line, when it is not installed or does not start.
    static bool start(const QString& name, const QStringList& arguments, QString* error);
};

} // namespace corvina
