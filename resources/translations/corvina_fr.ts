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
</context>
</TS>
