<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr_FR">
<context>
    <name>corvina</name>
    <message>
        <source>No subject</source>
        <translation>Sans objet</translation>
    </message>
    <message>
        <source>No Mail</source>
        <translation>Aucune adresse</translation>
    </message>
    <message>
        <source>No Name</source>
        <translation>Sans nom</translation>
    </message>
    <message>
        <source>Inbox</source>
        <translation>Boîte de réception</translation>
    </message>
    <message>
        <source>To Do</source>
        <translation>À faire</translation>
    </message>
    <message>
        <source>Memo</source>
        <translation>Mémo</translation>
    </message>
    <message>
        <source>New message</source>
        <translation>Nouveau message</translation>
    </message>
    <message>
        <source>1 new message</source>
        <translation>1 nouveau message</translation>
    </message>
    <message>
        <source>%1 new messages</source>
        <translation>%1 nouveaux messages</translation>
    </message>
    <message>
        <source>No new mail</source>
        <translation>Aucun nouveau message</translation>
    </message>
    <message>
        <source>Show the list</source>
        <translation>Afficher la liste</translation>
    </message>
    <message>
        <source>Hide the list</source>
        <translation>Masquer la liste</translation>
    </message>
    <message>
        <source>Notify about new mail</source>
        <translation>Notifier les nouveaux messages</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Quitter</translation>
    </message>
    <message>
        <source>Accounts…</source>
        <translation>Comptes…</translation>
    </message>
    <message>
        <source>Open</source>
        <translation>Ouvrir</translation>
    </message>
    <message>
        <source>Archive</source>
        <translation>Archiver</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Supprimer</translation>
    </message>
    <message>
        <source>No messages</source>
        <translation>Aucun message</translation>
    </message>
    <message>
        <source>No shared folder: is the mail application (or corvina-mail-bridge) running?</source>
        <translation>Aucun dossier partagé : l’application de messagerie (ou corvina-mail-bridge) est-elle lancée ?</translation>
    </message>
    <message>
        <source>As of %1: %2</source>
        <translation>À %1 : %2</translation>
    </message>
    <message>
        <source>The mail application&apos;s account list could not be read (too large or damaged).</source>
        <translation>La liste des comptes de l’application de messagerie n’a pas pu être lue (trop grande ou endommagée).</translation>
    </message>
    <message>
        <source>Reply</source>
        <translation>Répondre</translation>
    </message>
    <message>
        <source>Unread</source>
        <translation>Non lu</translation>
    </message>
    <message>
        <source>Read</source>
        <translation>Lu</translation>
    </message>
    <message>
        <source>New since you last looked</source>
        <translation>Nouveau depuis votre dernier coup d’œil</translation>
    </message>
    <message>
        <source>Enter opens, R replies, A archives, Delete deletes</source>
        <translation>Entrée ouvre, R répond, A archive, Suppr supprime</translation>
    </message>
    <message>
        <source>The message from %1: %2</source>
        <translation>Le message de %1 : %2</translation>
    </message>
    <message>
        <source>List</source>
        <translation>Liste</translation>
    </message>
    <message>
        <source>Which messages are shown; keys 1, 2 and 3</source>
        <translation>Quels messages sont affichés ; touches 1, 2 et 3</translation>
    </message>
    <message>
        <source>Shows the list %1 (key %2)</source>
        <translation>Affiche la liste %1 (touche %2)</translation>
    </message>
    <message>
        <source>Messages</source>
        <translation>Messages</translation>
    </message>
    <message>
        <source>(no sender)</source>
        <translation>(sans expéditeur)</translation>
    </message>
    <message>
        <source>Could not archive the message</source>
        <translation>Impossible d’archiver le message</translation>
    </message>
    <message>
        <source>Could not move the message to the trash</source>
        <translation>Impossible de mettre le message à la corbeille</translation>
    </message>
    <message>
        <source>Could not open the message</source>
        <translation>Impossible d’ouvrir le message</translation>
    </message>
    <message>
        <source>Could not start a reply</source>
        <translation>Impossible de commencer la réponse</translation>
    </message>
    <message>
        <source>Could not hand the message to your mail client</source>
        <translation>Impossible de transmettre le message au logiciel de messagerie</translation>
    </message>
    <message>
        <source>Sign in again to %1</source>
        <translation>Reconnectez-vous à %1</translation>
    </message>
    <message>
        <source>Sign in</source>
        <translation>Se connecter</translation>
    </message>
    <message>
        <source>The bridge cannot use it: %1</source>
        <translation>Le pont ne peut pas l’utiliser : %1</translation>
    </message>
    <message>
        <source>Turned off (enabled = false in bridge.conf)</source>
        <translation>Désactivé (enabled = false dans bridge.conf)</translation>
    </message>
    <message>
        <source>Not read yet: the bridge has not synced it</source>
        <translation>Pas encore lu : le pont ne l’a pas encore synchronisé</translation>
    </message>
    <message>
        <source>Current as of %1</source>
        <translation>À jour au %1</translation>
    </message>
    <message>
        <source>Sign-in needed (since %1): %2</source>
        <translation>Connexion requise (depuis %1) : %2</translation>
    </message>
    <message>
        <source>Not current: %1 (at %2); last current at %3</source>
        <translation>Pas à jour : %1 (à %2) ; dernière mise à jour à %3</translation>
    </message>
    <message>
        <source>Not current: %1 (at %2)</source>
        <translation>Pas à jour : %1 (à %2)</translation>
    </message>
    <message>
        <source>Mail accounts</source>
        <translation>Comptes de messagerie</translation>
    </message>
    <message>
        <source>Your mail accounts</source>
        <translation>Vos comptes de messagerie</translation>
    </message>
    <message>
        <source>Accounts</source>
        <translation>Comptes</translation>
    </message>
    <message>
        <source>No accounts yet</source>
        <translation>Aucun compte pour l’instant</translation>
    </message>
    <message>
        <source>&amp;Add account…</source>
        <translation>&amp;Ajouter un compte…</translation>
    </message>
    <message>
        <source>Add account</source>
        <translation>Ajouter un compte</translation>
    </message>
    <message>
        <source>&amp;Remove…</source>
        <translation>&amp;Supprimer…</translation>
    </message>
    <message>
        <source>Remove account</source>
        <translation>Supprimer le compte</translation>
    </message>
    <message>
        <source>Added the account %1.</source>
        <translation>Le compte %1 a été ajouté.</translation>
    </message>
    <message>
        <source>Added the account %1. %2</source>
        <translation>Le compte %1 a été ajouté. %2</translation>
    </message>
    <message>
        <source>Remove the account %1 (%2)? Its settings leave bridge.conf and its password leaves the keyring; the mail on the server stays.</source>
        <translation>Supprimer le compte %1 (%2) ? Ses réglages quittent bridge.conf et son mot de passe le trousseau ; le courrier reste sur le serveur.</translation>
    </message>
    <message>
        <source>&amp;Remove</source>
        <translation>&amp;Supprimer</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Supprimer</translation>
    </message>
    <message>
        <source>The account %1 was not removed: %2</source>
        <translation>Le compte %1 n’a pas été supprimé : %2</translation>
    </message>
    <message>
        <source>Removed the account %1 and its password.</source>
        <translation>Le compte %1 et son mot de passe ont été supprimés.</translation>
    </message>
    <message>
        <source>Removed the account %1; the keyring could not be reached, so a password it holds for it stays there.</source>
        <translation>Le compte %1 a été supprimé ; le trousseau était injoignable, un mot de passe qu’il garde pour lui y reste donc.</translation>
    </message>
    <message>
        <source>Removing %1…</source>
        <translation>Suppression de %1…</translation>
    </message>
    <message>
        <source>Add a mail account</source>
        <translation>Ajouter un compte de messagerie</translation>
    </message>
    <message>
        <source>Mail address</source>
        <translation>Adresse électronique</translation>
    </message>
    <message>
        <source>IMAP server</source>
        <translation>Serveur IMAP</translation>
    </message>
    <message>
        <source>Port</source>
        <translation>Port</translation>
    </message>
    <message>
        <source>Security</source>
        <translation>Sécurité</translation>
    </message>
    <message>
        <source>TLS: encrypted from the start (usually port 993)</source>
        <translation>TLS : chiffré dès le début (en général port 993)</translation>
    </message>
    <message>
        <source>STARTTLS: encrypted after the greeting (usually port 143)</source>
        <translation>STARTTLS : chiffré après l’accueil du serveur (en général port 143)</translation>
    </message>
    <message>
        <source>None: not encrypted, only for a server on this computer</source>
        <translation>Aucune : non chiffré, seulement pour un serveur sur cet ordinateur</translation>
    </message>
    <message>
        <source>Login name</source>
        <translation>Identifiant</translation>
    </message>
    <message>
        <source>the mail address</source>
        <translation>l’adresse électronique</translation>
    </message>
    <message>
        <source>Server</source>
        <translation>Serveur</translation>
    </message>
    <message>
        <source>IMAP ser&amp;ver:</source>
        <translation>Ser&amp;veur IMAP :</translation>
    </message>
    <message>
        <source>Securit&amp;y:</source>
        <translation>Sécurit&amp;é :</translation>
    </message>
    <message>
        <source>P&amp;ort:</source>
        <translation>P&amp;ort :</translation>
    </message>
    <message>
        <source>&amp;Login name:</source>
        <translation>&amp;Identifiant :</translation>
    </message>
    <message>
        <source>Password</source>
        <translation>Mot de passe</translation>
    </message>
    <message>
        <source>&amp;Password:</source>
        <translation>&amp;Mot de passe :</translation>
    </message>
    <message>
        <source>The To Do and Memo lists&apos; folders are chosen later, from the server&apos;s own list; until then To Do shows the inbox&apos;s flagged messages.</source>
        <translation>Les dossiers des listes « À faire » et « Mémo » se choisissent plus tard, dans la liste du serveur ; d’ici là, « À faire » montre les messages signalés de la boîte de réception.</translation>
    </message>
    <message>
        <source>&amp;Test connection</source>
        <translation>&amp;Tester la connexion</translation>
    </message>
    <message>
        <source>Test connection</source>
        <translation>Tester la connexion</translation>
    </message>
    <message>
        <source>&amp;Save</source>
        <translation>&amp;Enregistrer</translation>
    </message>
    <message>
        <source>Save</source>
        <translation>Enregistrer</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Annuler</translation>
    </message>
    <message>
        <source>The result of the connection test or the save</source>
        <translation>Le résultat du test de connexion ou de l’enregistrement</translation>
    </message>
    <message>
        <source>Mail &amp;address:</source>
        <translation>&amp;Adresse électronique :</translation>
    </message>
    <message>
        <source>Type your mail address first: the settings of a known provider are filled in for you.</source>
        <translation>Tapez d’abord votre adresse électronique : les réglages d’un fournisseur connu sont remplis pour vous.</translation>
    </message>
    <message>
        <source>Your provider is not in the list this program knows: give its IMAP server&apos;s settings (your provider&apos;s help pages name them).</source>
        <translation>Votre fournisseur n’est pas dans la liste que ce programme connaît : indiquez les réglages de son serveur IMAP (les pages d’aide de votre fournisseur les donnent).</translation>
    </message>
    <message>
        <source>%1: server %2, port %3, %4. %5</source>
        <translation>%1 : serveur %2, port %3, %4. %5</translation>
    </message>
    <message>
        <source>Make one at your provider.</source>
        <translation>Créez-en un chez votre fournisseur.</translation>
    </message>
    <message>
        <source>It takes no password: you sign in in your browser. This window cannot do that yet: save the account, then run the command it shows.</source>
        <translation>Il ne prend pas de mot de passe : vous vous connectez dans votre navigateur. Cette fenêtre ne sait pas encore le faire : enregistrez le compte, puis lancez la commande qu’elle affiche.</translation>
    </message>
    <message>
        <source>Use an app password made for this program, not your account&apos;s password (signing in in the browser is not in this window yet).</source>
        <translation>Utilisez un mot de passe d’application créé pour ce programme, pas celui de votre compte (la connexion dans le navigateur n’est pas encore dans cette fenêtre).</translation>
    </message>
    <message>
        <source>It needs an app password made for this program, not your account&apos;s password.</source>
        <translation>Il faut un mot de passe d’application créé pour ce programme, pas celui de votre compte.</translation>
    </message>
    <message>
        <source>A mail address is needed (like ada@example.org).</source>
        <translation>Une adresse électronique est nécessaire (comme ada@example.org).</translation>
    </message>
    <message>
        <source>%1 is already the account %2.</source>
        <translation>%1 est déjà le compte %2.</translation>
    </message>
    <message>
        <source>Type the password first.</source>
        <translation>Tapez d’abord le mot de passe.</translation>
    </message>
    <message>
        <source>Connection ok: the server took the login and the inbox opened.</source>
        <translation>Connexion réussie : le serveur a accepté l’identification et la boîte de réception s’est ouverte.</translation>
    </message>
    <message>
        <source>Testing the connection…</source>
        <translation>Test de la connexion…</translation>
    </message>
    <message>
        <source>Sign in in your browser to finish: run corvina-mail-bridge account signin %1</source>
        <translation>Connectez-vous dans votre navigateur pour finir : lancez corvina-mail-bridge account signin %1</translation>
    </message>
    <message>
        <source>Saving…</source>
        <translation>Enregistrement…</translation>
    </message>
    <message>
        <source>&amp;Keep my mail current</source>
        <translation>&amp;Garder mon courrier à jour</translation>
    </message>
    <message>
        <source>Keep my mail current</source>
        <translation>Garder mon courrier à jour</translation>
    </message>
    <message>
        <source>Asking systemd whether the bridge runs…</source>
        <translation>Demande à systemd si le pont tourne…</translation>
    </message>
    <message>
        <source>There is no systemd for your user here, so this window cannot start the bridge. Start it yourself: run %1 in a terminal, or add it to the programs your desktop starts at login.</source>
        <translation>Il n’y a pas de systemd pour votre utilisateur ici, cette fenêtre ne peut donc pas démarrer le pont. Démarrez-le vous-même : lancez %1 dans un terminal, ou ajoutez-le aux programmes que votre bureau lance à l’ouverture de session.</translation>
    </message>
    <message>
        <source>The bridge&apos;s systemd unit is not installed (%1). Start the bridge yourself: run %2 in a terminal.</source>
        <translation>L’unité systemd du pont n’est pas installée (%1). Démarrez le pont vous-même : lancez %2 dans un terminal.</translation>
    </message>
    <message>
        <source>Starting the bridge…</source>
        <translation>Démarrage du pont…</translation>
    </message>
    <message>
        <source>Stopping the bridge…</source>
        <translation>Arrêt du pont…</translation>
    </message>
    <message>
        <source>The bridge is running and keeps your mail current; it starts at every login.</source>
        <translation>Le pont tourne et garde votre courrier à jour ; il démarre à chaque ouverture de session.</translation>
    </message>
    <message>
        <source>The bridge is running and keeps your mail current.</source>
        <translation>Le pont tourne et garde votre courrier à jour.</translation>
    </message>
    <message>
        <source>The bridge is starting…</source>
        <translation>Le pont démarre…</translation>
    </message>
    <message>
        <source>The bridge is stopping…</source>
        <translation>Le pont s’arrête…</translation>
    </message>
    <message>
        <source>The bridge stopped with an error; its log says why: %1</source>
        <translation>Le pont s’est arrêté sur une erreur ; son journal dit pourquoi : %1</translation>
    </message>
    <message>
        <source>The bridge is not running: your mail is not kept current.</source>
        <translation>Le pont ne tourne pas : votre courrier n’est pas tenu à jour.</translation>
    </message>
    <message>
        <source>systemd did not answer within %1 s</source>
        <translation>systemd n’a pas répondu en %1 s</translation>
    </message>
    <message>
        <source>The bridge was not switched on: %1</source>
        <translation>Le pont n’a pas été activé : %1</translation>
    </message>
    <message>
        <source>The bridge was not started: %1</source>
        <translation>Le pont n’a pas été démarré : %1</translation>
    </message>
    <message>
        <source>The bridge was not stopped: %1</source>
        <translation>Le pont n’a pas été arrêté : %1</translation>
    </message>
    <message>
        <source>The bridge was not switched off: %1</source>
        <translation>Le pont n’a pas été désactivé : %1</translation>
    </message>
    <message>
        <source>Add your mail account…</source>
        <translation>Ajouter votre compte de messagerie…</translation>
    </message>
    <message>
        <source>Opens the Accounts window</source>
        <translation>Ouvre la fenêtre « Comptes »</translation>
    </message>
    <message>
        <source>%1. Start the bridge yourself: run %2 in a terminal.</source>
        <translation>%1. Démarrez le pont vous-même : lancez %2 dans un terminal.</translation>
    </message>
    <message>
        <source>Sign &amp;in again</source>
        <translation>Se reconnecter (&amp;i)</translation>
    </message>
    <message>
        <source>Sign in again</source>
        <translation>Se reconnecter</translation>
    </message>
    <message>
        <source>&amp;Edit…</source>
        <translation>&amp;Modifier…</translation>
    </message>
    <message>
        <source>Edit account</source>
        <translation>Modifier le compte</translation>
    </message>
    <message>
        <source>Change &amp;password…</source>
        <translation>Changer le mot de &amp;passe…</translation>
    </message>
    <message>
        <source>Change password</source>
        <translation>Changer le mot de passe</translation>
    </message>
    <message>
        <source>Saved the account %1; a running bridge follows the new settings at once.</source>
        <translation>Le compte %1 est enregistré ; un pont en marche suit aussitôt les nouveaux réglages.</translation>
    </message>
    <message>
        <source>Stored the new password of %1 in the keyring.</source>
        <translation>Le nouveau mot de passe de %1 est rangé dans le trousseau.</translation>
    </message>
    <message>
        <source>Turn o&amp;ff</source>
        <translation>Désacti&amp;ver</translation>
    </message>
    <message>
        <source>Turn o&amp;n</source>
        <translation>Acti&amp;ver</translation>
    </message>
    <message>
        <source>Turn off</source>
        <translation>Désactiver</translation>
    </message>
    <message>
        <source>Turn on</source>
        <translation>Activer</translation>
    </message>
    <message>
        <source>Stop &amp;waiting for the browser</source>
        <translation>Ne plus attendre le navigateur (&amp;w)</translation>
    </message>
    <message>
        <source>Stop waiting for the browser</source>
        <translation>Ne plus attendre le navigateur</translation>
    </message>
    <message>
        <source>Stopping the sign-in…</source>
        <translation>Arrêt de la connexion…</translation>
    </message>
    <message>
        <source>Signed in to %1 (%2) again; a running bridge tries it at once.</source>
        <translation>Reconnecté à %1 (%2) ; un pont en marche réessaie aussitôt.</translation>
    </message>
    <message>
        <source>%1 is not signed in: %2</source>
        <translation>%1 n’est pas connecté : %2</translation>
    </message>
    <message>
        <source>Waiting for you to finish signing in to %1 in the browser…</source>
        <translation>En attente de la fin de votre connexion à %1 dans le navigateur…</translation>
    </message>
    <message>
        <source>The account %1 is no longer in bridge.conf.</source>
        <translation>Le compte %1 n’est plus dans bridge.conf.</translation>
    </message>
    <message>
        <source>The account %1 was not changed: %2</source>
        <translation>Le compte %1 n’a pas été modifié : %2</translation>
    </message>
    <message>
        <source>Turned on %1: a running bridge syncs it at once.</source>
        <translation>%1 est activé : un pont en marche le synchronise aussitôt.</translation>
    </message>
    <message>
        <source>Turned off %1: a running bridge stops syncing it at once.</source>
        <translation>%1 est désactivé : un pont en marche cesse aussitôt de le synchroniser.</translation>
    </message>
    <message>
        <source>Sign-in</source>
        <translation>Connexion</translation>
    </message>
    <message>
        <source>Password: the account's password, or an app password</source>
        <translation>Mot de passe : celui du compte, ou un mot de passe d’application</translation>
    </message>
    <message>
        <source>In the browser: the provider publishes its sign-in (OAuth 2)</source>
        <translation>Dans le navigateur : le fournisseur publie sa connexion (OAuth 2)</translation>
    </message>
    <message>
        <source>Sign-in address</source>
        <translation>Adresse de connexion</translation>
    </message>
    <message>
        <source>Sign-in addr&amp;ess:</source>
        <translation>Adresse de conne&amp;xion :</translation>
    </message>
    <message>
        <source>Sig&amp;n-in:</source>
        <translation>Co&amp;nnexion :</translation>
    </message>
    <message>
        <source>Sign in with the &amp;browser</source>
        <translation>Se connecter avec le navigateur (&amp;b)</translation>
    </message>
    <message>
        <source>Sign in with the browser</source>
        <translation>Se connecter avec le navigateur</translation>
    </message>
    <message>
        <source>It takes no password: press Sign in with the browser and finish there, then save.</source>
        <translation>Aucun mot de passe : appuyez sur « Se connecter avec le navigateur », terminez là-bas, puis enregistrez.</translation>
    </message>
    <message>
        <source>Sign in with the browser; or use an app password made for this program, not your account's password.</source>
        <translation>Connectez-vous avec le navigateur, ou utilisez un mot de passe d’application fait pour ce programme, pas celui de votre compte.</translation>
    </message>
    <message>
        <source>Connection ok, but the server lists no folder %1: choose one it has.</source>
        <translation>Connexion réussie, mais le serveur ne liste aucun dossier %1 : choisissez-en un qu’il possède.</translation>
    </message>
    <message>
        <source>%1 (not in the server's list)</source>
        <translation>%1 (absent de la liste du serveur)</translation>
    </message>
    <message>
        <source>Connection ok, but the server's folders could not be listed: %1</source>
        <translation>Connexion réussie, mais les dossiers du serveur n’ont pas pu être listés : %1</translation>
    </message>
    <message>
        <source>Sign in in your browser to finish: select it and press Sign in again (or run corvina-mail-bridge account signin %1).</source>
        <translation>Connectez-vous dans votre navigateur pour terminer : sélectionnez-le et appuyez sur « Se reconnecter » (ou lancez corvina-mail-bridge account signin %1).</translation>
    </message>
    <message>
        <source>Not signed in: %1</source>
        <translation>Non connecté : %1</translation>
    </message>
    <message>
        <source>Signed in as %1 in the browser. Test the connection, or save the account.</source>
        <translation>Connecté en tant que %1 dans le navigateur. Testez la connexion ou enregistrez le compte.</translation>
    </message>
    <message>
        <source>Waiting for you to finish in the browser… (Cancel stops waiting)</source>
        <translation>En attente de la fin dans le navigateur… (Annuler arrête l’attente)</translation>
    </message>
    <message>
        <source>Inbox folder</source>
        <translation>Dossier de la boîte de réception</translation>
    </message>
    <message>
        <source>To Do folder</source>
        <translation>Dossier des tâches (To Do)</translation>
    </message>
    <message>
        <source>Memo folder</source>
        <translation>Dossier des mémos (Memo)</translation>
    </message>
    <message>
        <source>Signs in with</source>
        <translation>Se connecte avec</translation>
    </message>
    <message>
        <source>Password for the new server or login name</source>
        <translation>Mot de passe pour le nouveau serveur ou identifiant</translation>
    </message>
    <message>
        <source>Signs in &amp;with:</source>
        <translation>Se connecte avec (&amp;w) :</translation>
    </message>
    <message>
        <source>A running bridge follows the changed settings as soon as they are saved.</source>
        <translation>Un pont en marche suit les réglages modifiés dès qu’ils sont enregistrés.</translation>
    </message>
    <message>
        <source>Edit %1 (%2)</source>
        <translation>Modifier %1 (%2)</translation>
    </message>
    <message>
        <source>password, from its passwordCommand</source>
        <translation>mot de passe, donné par son passwordCommand</translation>
    </message>
    <message>
        <source>Type the password for the new server or login name first.</source>
        <translation>Tapez d’abord le mot de passe pour le nouveau serveur ou identifiant.</translation>
    </message>
    <message>
        <source>&amp;Inbox:</source>
        <translation>Boîte de &amp;réception :</translation>
    </message>
    <message>
        <source>To &amp;Do:</source>
        <translation>To &amp;Do :</translation>
    </message>
    <message>
        <source>&amp;Memo:</source>
        <translation>&amp;Liste Memo :</translation>
    </message>
    <message>
        <source>The inbox's flagged messages</source>
        <translation>Les messages marqués de la boîte de réception</translation>
    </message>
    <message>
        <source>No Memo list</source>
        <translation>Pas de liste Memo</translation>
    </message>
    <message>
        <source>The server has more folders than these %1; a folder not offered can be named in bridge.conf.</source>
        <translation>Le serveur a plus de dossiers que ces %1 ; un dossier non proposé peut être nommé dans bridge.conf.</translation>
    </message>
    <message>
        <source>Test the connection to choose the lists' folders from the server's own.</source>
        <translation>Testez la connexion pour choisir les dossiers des listes parmi ceux du serveur.</translation>
    </message>
    <message>
        <source>New password</source>
        <translation>Nouveau mot de passe</translation>
    </message>
    <message>
        <source>&amp;New password:</source>
        <translation>&amp;Nouveau mot de passe :</translation>
    </message>
    <message>
        <source>It replaces the password kept in the keyring for this account; the bridge takes it at its next login.</source>
        <translation>Il remplace le mot de passe gardé dans le trousseau pour ce compte ; le pont le prend à sa prochaine connexion.</translation>
    </message>
    <message>
        <source>Change the password of %1 (%2 on %3)</source>
        <translation>Changer le mot de passe de %1 (%2 sur %3)</translation>
    </message>
    <message>
        <source>Type the new password first.</source>
        <translation>Tapez d’abord le nouveau mot de passe.</translation>
    </message>
</context>
</TS>
