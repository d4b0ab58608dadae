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
</context>
</TS>
