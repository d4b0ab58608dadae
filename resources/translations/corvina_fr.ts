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
</context>
</TS>
