<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>corvina</name>
    <message>
        <source>No subject</source>
        <translation>Kein Betreff</translation>
    </message>
    <message>
        <source>No Mail</source>
        <translation>Keine E-Mail</translation>
    </message>
    <message>
        <source>No Name</source>
        <translation>Kein Name</translation>
    </message>
    <message>
        <source>Inbox</source>
        <translation>Posteingang</translation>
    </message>
    <message>
        <source>To Do</source>
        <translation>Zu erledigen</translation>
    </message>
    <message>
        <source>Memo</source>
        <translation>Notiz</translation>
    </message>
    <message>
        <source>New message</source>
        <translation>Neue Nachricht</translation>
    </message>
    <message>
        <source>1 new message</source>
        <translation>1 neue Nachricht</translation>
    </message>
    <message>
        <source>%1 new messages</source>
        <translation>%1 neue Nachrichten</translation>
    </message>
    <message>
        <source>No new mail</source>
        <translation>Keine neue E-Mail</translation>
    </message>
    <message>
        <source>Show the list</source>
        <translation>Liste zeigen</translation>
    </message>
    <message>
        <source>Hide the list</source>
        <translation>Liste ausblenden</translation>
    </message>
    <message>
        <source>Notify about new mail</source>
        <translation>Bei neuer E-Mail benachrichtigen</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Accounts…</source>
        <translation>Konten…</translation>
    </message>
    <message>
        <source>Open</source>
        <translation>Öffnen</translation>
    </message>
    <message>
        <source>Archive</source>
        <translation>Archivieren</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>No messages</source>
        <translation>Keine Nachrichten</translation>
    </message>
    <message>
        <source>No shared folder: is the mail application (or corvina-mail-bridge) running?</source>
        <translation>Kein gemeinsamer Ordner: Läuft das Mailprogramm (oder corvina-mail-bridge)?</translation>
    </message>
    <message>
        <source>As of %1: %2</source>
        <translation>Stand %1: %2</translation>
    </message>
    <message>
        <source>The mail application&apos;s account list could not be read (too large or damaged).</source>
        <translation>Die Kontenliste des Mailprogramms konnte nicht gelesen werden (zu groß oder beschädigt).</translation>
    </message>
    <message>
        <source>Reply</source>
        <translation>Antworten</translation>
    </message>
    <message>
        <source>Unread</source>
        <translation>Ungelesen</translation>
    </message>
    <message>
        <source>Read</source>
        <translation>Gelesen</translation>
    </message>
    <message>
        <source>New since you last looked</source>
        <translation>Neu seit dem letzten Blick</translation>
    </message>
    <message>
        <source>Enter opens, R replies, A archives, Delete deletes</source>
        <translation>Eingabe öffnet, R antwortet, A archiviert, Entf löscht</translation>
    </message>
    <message>
        <source>The message from %1: %2</source>
        <translation>Die Nachricht von %1: %2</translation>
    </message>
    <message>
        <source>List</source>
        <translation>Liste</translation>
    </message>
    <message>
        <source>Which messages are shown; keys 1, 2 and 3</source>
        <translation>Welche Nachrichten gezeigt werden; Tasten 1, 2 und 3</translation>
    </message>
    <message>
        <source>Shows the list %1 (key %2)</source>
        <translation>Zeigt die Liste %1 (Taste %2)</translation>
    </message>
    <message>
        <source>Messages</source>
        <translation>Nachrichten</translation>
    </message>
    <message>
        <source>(no sender)</source>
        <translation>(kein Absender)</translation>
    </message>
    <message>
        <source>Could not archive the message</source>
        <translation>Die Nachricht konnte nicht archiviert werden</translation>
    </message>
    <message>
        <source>Could not move the message to the trash</source>
        <translation>Die Nachricht konnte nicht in den Papierkorb verschoben werden</translation>
    </message>
    <message>
        <source>Could not open the message</source>
        <translation>Die Nachricht konnte nicht geöffnet werden</translation>
    </message>
    <message>
        <source>Could not start a reply</source>
        <translation>Die Antwort konnte nicht begonnen werden</translation>
    </message>
    <message>
        <source>Could not hand the message to your mail client</source>
        <translation>Die Nachricht konnte nicht an das Mailprogramm übergeben werden</translation>
    </message>
    <message>
        <source>Sign in again to %1</source>
        <translation>Erneut bei %1 anmelden</translation>
    </message>
    <message>
        <source>Sign in</source>
        <translation>Anmelden</translation>
    </message>
</context>
</TS>
