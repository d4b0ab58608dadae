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
    <message>
        <source>The bridge cannot use it: %1</source>
        <translation>Die Brücke kann es nicht verwenden: %1</translation>
    </message>
    <message>
        <source>Turned off (enabled = false in bridge.conf)</source>
        <translation>Ausgeschaltet (enabled = false in bridge.conf)</translation>
    </message>
    <message>
        <source>Not read yet: the bridge has not synced it</source>
        <translation>Noch nicht gelesen: die Brücke hat es noch nicht abgeglichen</translation>
    </message>
    <message>
        <source>Current as of %1</source>
        <translation>Aktuell, Stand %1</translation>
    </message>
    <message>
        <source>Sign-in needed (since %1): %2</source>
        <translation>Anmeldung nötig (seit %1): %2</translation>
    </message>
    <message>
        <source>Not current: %1 (at %2); last current at %3</source>
        <translation>Nicht aktuell: %1 (um %2); zuletzt aktuell um %3</translation>
    </message>
    <message>
        <source>Not current: %1 (at %2)</source>
        <translation>Nicht aktuell: %1 (um %2)</translation>
    </message>
    <message>
        <source>Mail accounts</source>
        <translation>E-Mail-Konten</translation>
    </message>
    <message>
        <source>Your mail accounts</source>
        <translation>Ihre E-Mail-Konten</translation>
    </message>
    <message>
        <source>Accounts</source>
        <translation>Konten</translation>
    </message>
    <message>
        <source>No accounts yet</source>
        <translation>Noch keine Konten</translation>
    </message>
    <message>
        <source>&amp;Add account…</source>
        <translation>Konto &amp;hinzufügen…</translation>
    </message>
    <message>
        <source>Add account</source>
        <translation>Konto hinzufügen</translation>
    </message>
    <message>
        <source>&amp;Remove…</source>
        <translation>&amp;Entfernen…</translation>
    </message>
    <message>
        <source>Remove account</source>
        <translation>Konto entfernen</translation>
    </message>
    <message>
        <source>Added the account %1.</source>
        <translation>Das Konto %1 wurde hinzugefügt.</translation>
    </message>
    <message>
        <source>Added the account %1. %2</source>
        <translation>Das Konto %1 wurde hinzugefügt. %2</translation>
    </message>
    <message>
        <source>Remove the account %1 (%2)? Its settings leave bridge.conf and its password leaves the keyring; the mail on the server stays.</source>
        <translation>Das Konto %1 (%2) entfernen? Seine Einstellungen werden aus bridge.conf gelöscht und sein Passwort aus dem Schlüsselbund; die E-Mails auf dem Server bleiben.</translation>
    </message>
    <message>
        <source>&amp;Remove</source>
        <translation>&amp;Entfernen</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Entfernen</translation>
    </message>
    <message>
        <source>The account %1 was not removed: %2</source>
        <translation>Das Konto %1 wurde nicht entfernt: %2</translation>
    </message>
    <message>
        <source>Removed the account %1 and its password.</source>
        <translation>Das Konto %1 und sein Passwort wurden entfernt.</translation>
    </message>
    <message>
        <source>Removed the account %1; the keyring could not be reached, so a password it holds for it stays there.</source>
        <translation>Das Konto %1 wurde entfernt; der Schlüsselbund war nicht erreichbar, ein dort gespeichertes Passwort bleibt also erhalten.</translation>
    </message>
    <message>
        <source>Removing %1…</source>
        <translation>%1 wird entfernt…</translation>
    </message>
    <message>
        <source>Add a mail account</source>
        <translation>E-Mail-Konto hinzufügen</translation>
    </message>
    <message>
        <source>Mail address</source>
        <translation>E-Mail-Adresse</translation>
    </message>
    <message>
        <source>IMAP server</source>
        <translation>IMAP-Server</translation>
    </message>
    <message>
        <source>Port</source>
        <translation>Port</translation>
    </message>
    <message>
        <source>Security</source>
        <translation>Sicherheit</translation>
    </message>
    <message>
        <source>TLS: encrypted from the start (usually port 993)</source>
        <translation>TLS: von Anfang an verschlüsselt (meist Port 993)</translation>
    </message>
    <message>
        <source>STARTTLS: encrypted after the greeting (usually port 143)</source>
        <translation>STARTTLS: nach der Begrüßung verschlüsselt (meist Port 143)</translation>
    </message>
    <message>
        <source>None: not encrypted, only for a server on this computer</source>
        <translation>Keine: unverschlüsselt, nur für einen Server auf diesem Rechner</translation>
    </message>
    <message>
        <source>Login name</source>
        <translation>Benutzername</translation>
    </message>
    <message>
        <source>the mail address</source>
        <translation>die E-Mail-Adresse</translation>
    </message>
    <message>
        <source>Server</source>
        <translation>Server</translation>
    </message>
    <message>
        <source>IMAP ser&amp;ver:</source>
        <translation>IMAP-Ser&amp;ver:</translation>
    </message>
    <message>
        <source>Securit&amp;y:</source>
        <translation>Sicher&amp;heit:</translation>
    </message>
    <message>
        <source>P&amp;ort:</source>
        <translation>P&amp;ort:</translation>
    </message>
    <message>
        <source>&amp;Login name:</source>
        <translation>&amp;Benutzername:</translation>
    </message>
    <message>
        <source>Password</source>
        <translation>Passwort</translation>
    </message>
    <message>
        <source>&amp;Password:</source>
        <translation>&amp;Passwort:</translation>
    </message>
    <message>
        <source>The To Do and Memo lists&apos; folders are chosen later, from the server&apos;s own list; until then To Do shows the inbox&apos;s flagged messages.</source>
        <translation>Die Ordner der Listen „Zu erledigen“ und „Notiz“ werden später aus der Ordnerliste des Servers gewählt; bis dahin zeigt „Zu erledigen“ die markierten Nachrichten des Posteingangs.</translation>
    </message>
    <message>
        <source>&amp;Test connection</source>
        <translation>Verbindung &amp;testen</translation>
    </message>
    <message>
        <source>Test connection</source>
        <translation>Verbindung testen</translation>
    </message>
    <message>
        <source>&amp;Save</source>
        <translation>&amp;Speichern</translation>
    </message>
    <message>
        <source>Save</source>
        <translation>Speichern</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>The result of the connection test or the save</source>
        <translation>Das Ergebnis des Verbindungstests oder des Speicherns</translation>
    </message>
    <message>
        <source>Mail &amp;address:</source>
        <translation>E-Mail-&amp;Adresse:</translation>
    </message>
    <message>
        <source>Type your mail address first: the settings of a known provider are filled in for you.</source>
        <translation>Geben Sie zuerst Ihre E-Mail-Adresse ein: die Einstellungen eines bekannten Anbieters werden für Sie ausgefüllt.</translation>
    </message>
    <message>
        <source>Your provider is not in the list this program knows: give its IMAP server&apos;s settings (your provider&apos;s help pages name them).</source>
        <translation>Ihr Anbieter ist diesem Programm nicht bekannt: geben Sie die Einstellungen seines IMAP-Servers an (die Hilfeseiten Ihres Anbieters nennen sie).</translation>
    </message>
    <message>
        <source>%1: server %2, port %3, %4. %5</source>
        <translation>%1: Server %2, Port %3, %4. %5</translation>
    </message>
    <message>
        <source>Make one at your provider.</source>
        <translation>Erstellen Sie eines bei Ihrem Anbieter.</translation>
    </message>
    <message>
        <source>It takes no password: you sign in in your browser. This window cannot do that yet: save the account, then run the command it shows.</source>
        <translation>Es nimmt kein Passwort: Sie melden sich im Browser an. Dieses Fenster kann das noch nicht: speichern Sie das Konto und führen Sie dann den angezeigten Befehl aus.</translation>
    </message>
    <message>
        <source>Use an app password made for this program, not your account&apos;s password (signing in in the browser is not in this window yet).</source>
        <translation>Verwenden Sie ein für dieses Programm erstelltes App-Passwort, nicht das Passwort Ihres Kontos (die Anmeldung im Browser gibt es in diesem Fenster noch nicht).</translation>
    </message>
    <message>
        <source>It needs an app password made for this program, not your account&apos;s password.</source>
        <translation>Es braucht ein für dieses Programm erstelltes App-Passwort, nicht das Passwort Ihres Kontos.</translation>
    </message>
    <message>
        <source>A mail address is needed (like ada@example.org).</source>
        <translation>Eine E-Mail-Adresse wird benötigt (etwa ada@example.org).</translation>
    </message>
    <message>
        <source>%1 is already the account %2.</source>
        <translation>%1 ist bereits das Konto %2.</translation>
    </message>
    <message>
        <source>Type the password first.</source>
        <translation>Geben Sie zuerst das Passwort ein.</translation>
    </message>
    <message>
        <source>Connection ok: the server took the login and the inbox opened.</source>
        <translation>Verbindung in Ordnung: der Server hat die Anmeldung angenommen und der Posteingang ließ sich öffnen.</translation>
    </message>
    <message>
        <source>Testing the connection…</source>
        <translation>Die Verbindung wird getestet…</translation>
    </message>
    <message>
        <source>Sign in in your browser to finish: run corvina-mail-bridge account signin %1</source>
        <translation>Melden Sie sich zum Abschluss im Browser an: führen Sie corvina-mail-bridge account signin %1 aus</translation>
    </message>
    <message>
        <source>Saving…</source>
        <translation>Wird gespeichert…</translation>
    </message>
    <message>
        <source>&amp;Keep my mail current</source>
        <translation>Meine E-Mails &amp;aktuell halten</translation>
    </message>
    <message>
        <source>Keep my mail current</source>
        <translation>Meine E-Mails aktuell halten</translation>
    </message>
    <message>
        <source>Asking systemd whether the bridge runs…</source>
        <translation>systemd wird gefragt, ob die Brücke läuft…</translation>
    </message>
    <message>
        <source>There is no systemd for your user here, so this window cannot start the bridge. Start it yourself: run %1 in a terminal, or add it to the programs your desktop starts at login.</source>
        <translation>Hier läuft kein systemd für Ihren Benutzer, deshalb kann dieses Fenster die Brücke nicht starten. Starten Sie sie selbst: führen Sie %1 in einem Terminal aus, oder nehmen Sie es in die Programme auf, die Ihr Desktop bei der Anmeldung startet.</translation>
    </message>
    <message>
        <source>The bridge&apos;s systemd unit is not installed (%1). Start the bridge yourself: run %2 in a terminal.</source>
        <translation>Die systemd-Unit der Brücke ist nicht installiert (%1). Starten Sie die Brücke selbst: führen Sie %2 in einem Terminal aus.</translation>
    </message>
    <message>
        <source>Starting the bridge…</source>
        <translation>Die Brücke wird gestartet…</translation>
    </message>
    <message>
        <source>Stopping the bridge…</source>
        <translation>Die Brücke wird angehalten…</translation>
    </message>
    <message>
        <source>The bridge is running and keeps your mail current; it starts at every login.</source>
        <translation>Die Brücke läuft und hält Ihre E-Mails aktuell; sie startet bei jeder Anmeldung.</translation>
    </message>
    <message>
        <source>The bridge is running and keeps your mail current.</source>
        <translation>Die Brücke läuft und hält Ihre E-Mails aktuell.</translation>
    </message>
    <message>
        <source>The bridge is starting…</source>
        <translation>Die Brücke startet…</translation>
    </message>
    <message>
        <source>The bridge is stopping…</source>
        <translation>Die Brücke hält an…</translation>
    </message>
    <message>
        <source>The bridge stopped with an error; its log says why: %1</source>
        <translation>Die Brücke wurde mit einem Fehler beendet; ihr Protokoll sagt, warum: %1</translation>
    </message>
    <message>
        <source>The bridge is not running: your mail is not kept current.</source>
        <translation>Die Brücke läuft nicht: Ihre E-Mails werden nicht aktuell gehalten.</translation>
    </message>
    <message>
        <source>systemd did not answer within %1 s</source>
        <translation>systemd hat nicht innerhalb von %1 s geantwortet</translation>
    </message>
    <message>
        <source>The bridge was not switched on: %1</source>
        <translation>Die Brücke wurde nicht eingeschaltet: %1</translation>
    </message>
    <message>
        <source>The bridge was not started: %1</source>
        <translation>Die Brücke wurde nicht gestartet: %1</translation>
    </message>
    <message>
        <source>The bridge was not stopped: %1</source>
        <translation>Die Brücke wurde nicht angehalten: %1</translation>
    </message>
    <message>
        <source>The bridge was not switched off: %1</source>
        <translation>Die Brücke wurde nicht ausgeschaltet: %1</translation>
    </message>
    <message>
        <source>Add your mail account…</source>
        <translation>Ihr E-Mail-Konto hinzufügen…</translation>
    </message>
    <message>
        <source>Opens the Accounts window</source>
        <translation>Öffnet das Fenster „Konten“</translation>
    </message>
    <message>
        <source>%1. Start the bridge yourself: run %2 in a terminal.</source>
        <translation>%1. Starten Sie die Brücke selbst: führen Sie %2 in einem Terminal aus.</translation>
    </message>
    <message>
        <source>Sign &amp;in again</source>
        <translation>Erneut an&amp;melden</translation>
    </message>
    <message>
        <source>Sign in again</source>
        <translation>Erneut anmelden</translation>
    </message>
    <message>
        <source>&amp;Edit…</source>
        <translation>&amp;Bearbeiten…</translation>
    </message>
    <message>
        <source>Edit account</source>
        <translation>Konto bearbeiten</translation>
    </message>
    <message>
        <source>Change &amp;password…</source>
        <translation>&amp;Passwort ändern…</translation>
    </message>
    <message>
        <source>Change password</source>
        <translation>Passwort ändern</translation>
    </message>
    <message>
        <source>Saved the account %1; a running bridge follows the new settings at once.</source>
        <translation>Das Konto %1 wurde gespeichert; eine laufende Brücke übernimmt die neuen Einstellungen sofort.</translation>
    </message>
    <message>
        <source>Stored the new password of %1 in the keyring.</source>
        <translation>Das neue Passwort von %1 liegt im Schlüsselbund.</translation>
    </message>
    <message>
        <source>Turn o&amp;ff</source>
        <translation>Aus&amp;schalten</translation>
    </message>
    <message>
        <source>Turn o&amp;n</source>
        <translation>Ei&amp;nschalten</translation>
    </message>
    <message>
        <source>Turn off</source>
        <translation>Ausschalten</translation>
    </message>
    <message>
        <source>Turn on</source>
        <translation>Einschalten</translation>
    </message>
    <message>
        <source>Stop &amp;waiting for the browser</source>
        <translation>Nicht länger auf den Bro&amp;wser warten</translation>
    </message>
    <message>
        <source>Stop waiting for the browser</source>
        <translation>Nicht länger auf den Browser warten</translation>
    </message>
    <message>
        <source>Stopping the sign-in…</source>
        <translation>Die Anmeldung wird beendet…</translation>
    </message>
    <message>
        <source>Signed in to %1 (%2) again; a running bridge tries it at once.</source>
        <translation>Erneut bei %1 (%2) angemeldet; eine laufende Brücke versucht es sofort.</translation>
    </message>
    <message>
        <source>%1 is not signed in: %2</source>
        <translation>%1 ist nicht angemeldet: %2</translation>
    </message>
    <message>
        <source>Waiting for you to finish signing in to %1 in the browser…</source>
        <translation>Warten, bis Sie die Anmeldung bei %1 im Browser abschließen…</translation>
    </message>
    <message>
        <source>The account %1 is no longer in bridge.conf.</source>
        <translation>Das Konto %1 steht nicht mehr in bridge.conf.</translation>
    </message>
    <message>
        <source>The account %1 was not changed: %2</source>
        <translation>Das Konto %1 wurde nicht geändert: %2</translation>
    </message>
    <message>
        <source>Turned on %1: a running bridge syncs it at once.</source>
        <translation>%1 ist eingeschaltet: eine laufende Brücke gleicht es sofort ab.</translation>
    </message>
    <message>
        <source>Turned off %1: a running bridge stops syncing it at once.</source>
        <translation>%1 ist ausgeschaltet: eine laufende Brücke hört sofort auf, es abzugleichen.</translation>
    </message>
    <message>
        <source>Sign-in</source>
        <translation>Anmeldung</translation>
    </message>
    <message>
        <source>Password: the account's password, or an app password</source>
        <translation>Passwort: das Passwort des Kontos oder ein App-Passwort</translation>
    </message>
    <message>
        <source>In the browser: the provider publishes its sign-in (OAuth 2)</source>
        <translation>Im Browser: der Anbieter veröffentlicht seine Anmeldung (OAuth 2)</translation>
    </message>
    <message>
        <source>Sign-in address</source>
        <translation>Anmeldeadresse</translation>
    </message>
    <message>
        <source>Sign-in addr&amp;ess:</source>
        <translation>Anme&amp;ldeadresse:</translation>
    </message>
    <message>
        <source>Sig&amp;n-in:</source>
        <translation>An&amp;meldung:</translation>
    </message>
    <message>
        <source>Sign in with the &amp;browser</source>
        <translation>Mit dem Bro&amp;wser anmelden</translation>
    </message>
    <message>
        <source>Sign in with the browser</source>
        <translation>Mit dem Browser anmelden</translation>
    </message>
    <message>
        <source>It takes no password: press Sign in with the browser and finish there, then save.</source>
        <translation>Es braucht kein Passwort: drücken Sie „Mit dem Browser anmelden“, schließen Sie dort ab und speichern Sie dann.</translation>
    </message>
    <message>
        <source>Sign in with the browser; or use an app password made for this program, not your account's password.</source>
        <translation>Melden Sie sich mit dem Browser an, oder nehmen Sie ein App-Passwort für dieses Programm, nicht das Passwort Ihres Kontos.</translation>
    </message>
    <message>
        <source>Connection ok, but the server lists no folder %1: choose one it has.</source>
        <translation>Verbindung in Ordnung, aber der Server führt keinen Ordner %1: Wählen Sie einen, den er hat.</translation>
    </message>
    <message>
        <source>%1 (not in the server's list)</source>
        <translation>%1 (nicht in der Liste des Servers)</translation>
    </message>
    <message>
        <source>Connection ok, but the server's folders could not be listed: %1</source>
        <translation>Verbindung in Ordnung, aber die Ordner des Servers ließen sich nicht auflisten: %1</translation>
    </message>
    <message>
        <source>Sign in in your browser to finish: select it and press Sign in again (or run corvina-mail-bridge account signin %1).</source>
        <translation>Melden Sie sich zum Abschluss im Browser an: wählen Sie es aus und drücken Sie „Erneut anmelden“ (oder führen Sie corvina-mail-bridge account signin %1 aus).</translation>
    </message>
    <message>
        <source>Not signed in: %1</source>
        <translation>Nicht angemeldet: %1</translation>
    </message>
    <message>
        <source>Signed in as %1 in the browser. Test the connection, or save the account.</source>
        <translation>Im Browser als %1 angemeldet. Testen Sie die Verbindung oder speichern Sie das Konto.</translation>
    </message>
    <message>
        <source>Waiting for you to finish in the browser… (Cancel stops waiting)</source>
        <translation>Warten, bis Sie im Browser abschließen… (Abbrechen beendet das Warten)</translation>
    </message>
    <message>
        <source>Inbox folder</source>
        <translation>Posteingangsordner</translation>
    </message>
    <message>
        <source>To Do folder</source>
        <translation>Ordner für To Do</translation>
    </message>
    <message>
        <source>Memo folder</source>
        <translation>Ordner für Memo</translation>
    </message>
    <message>
        <source>Signs in with</source>
        <translation>Meldet sich an mit</translation>
    </message>
    <message>
        <source>Password for the new server or login name</source>
        <translation>Passwort für den neuen Server oder Anmeldenamen</translation>
    </message>
    <message>
        <source>Signs in &amp;with:</source>
        <translation>Meldet sich an &amp;mit:</translation>
    </message>
    <message>
        <source>A running bridge follows the changed settings as soon as they are saved.</source>
        <translation>Eine laufende Brücke übernimmt die geänderten Einstellungen, sobald sie gespeichert sind.</translation>
    </message>
    <message>
        <source>Edit %1 (%2)</source>
        <translation>%1 (%2) bearbeiten</translation>
    </message>
    <message>
        <source>password, from its passwordCommand</source>
        <translation>Passwort, aus seinem passwordCommand</translation>
    </message>
    <message>
        <source>Type the password for the new server or login name first.</source>
        <translation>Geben Sie zuerst das Passwort für den neuen Server oder Anmeldenamen ein.</translation>
    </message>
    <message>
        <source>&amp;Inbox:</source>
        <translation>Posteingan&amp;g:</translation>
    </message>
    <message>
        <source>To &amp;Do:</source>
        <translation>To &amp;Do:</translation>
    </message>
    <message>
        <source>&amp;Memo:</source>
        <translation>M&amp;emo:</translation>
    </message>
    <message>
        <source>The inbox's flagged messages</source>
        <translation>Die markierten Nachrichten des Posteingangs</translation>
    </message>
    <message>
        <source>No Memo list</source>
        <translation>Keine Memo-Liste</translation>
    </message>
    <message>
        <source>The server has more folders than these %1; a folder not offered can be named in bridge.conf.</source>
        <translation>Der Server hat mehr Ordner als diese %1; einen nicht angebotenen Ordner können Sie in bridge.conf nennen.</translation>
    </message>
    <message>
        <source>Test the connection to choose the lists' folders from the server's own.</source>
        <translation>Testen Sie die Verbindung, um die Ordner der Listen aus denen des Servers zu wählen.</translation>
    </message>
    <message>
        <source>New password</source>
        <translation>Neues Passwort</translation>
    </message>
    <message>
        <source>&amp;New password:</source>
        <translation>&amp;Neues Passwort:</translation>
    </message>
    <message>
        <source>It replaces the password kept in the keyring for this account; the bridge takes it at its next login.</source>
        <translation>Es ersetzt das im Schlüsselbund gespeicherte Passwort dieses Kontos; die Brücke nimmt es bei ihrer nächsten Anmeldung.</translation>
    </message>
    <message>
        <source>Change the password of %1 (%2 on %3)</source>
        <translation>Das Passwort von %1 ändern (%2 auf %3)</translation>
    </message>
    <message>
        <source>Type the new password first.</source>
        <translation>Geben Sie zuerst das neue Passwort ein.</translation>
    </message>
</context>
</TS>
