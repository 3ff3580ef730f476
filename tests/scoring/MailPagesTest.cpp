// SPDX-License-Identifier: Apache-2.0
// The words that recognise a page on which users read mail, against pages as mail services show them.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/PageRecognition.h"

namespace zeph {
namespace {

TEST(MailPages, AreKnownByTheirButtons) {
  struct Row {
    const char* url;
    const char* captions;
    bool shows;
  };
  const std::vector<Row> rows = {
      // A message that is open, and a list of messages.
      {"https://mail.example.com/", "Reply Reply all Forward Delete Archive Print", true},
      {"https://mail.example.com/", "New mail Inbox Drafts Sent Items Deleted Items Junk Email Archive", true},
      {"https://mail.example.uk/", "Compose Inbox (3) Starred Sent Mail Drafts All Mail Spam Trash", true},
      {"https://mail.beispiel.de/", "E-Mail schreiben Posteingang Entwürfe Gesendet Papierkorb Adressbuch", true},
      {"https://mail.beispiel.de/", "Antworten Allen antworten Weiterleiten LÖSCHEN Verschieben Spam", true},
      {"https://posta.esempio.it/", "Rispondi Rispondi a tutti Inoltra Elimina Sposta in", true},
      {"https://posta.esempio.it/", "Nuovo messaggio Posta in arrivo Bozze Posta inviata Cestino Rubrica", true},
      {"https://courrier.exemple.fr/", "Répondre Répondre à tous Transférer Supprimer Imprimer", true},
      {"https://courrier.exemple.fr/", "Écrire Boîte de réception Brouillons Envoyés Corbeille Spam", true},
      {"https://correo.ejemplo.es/", "Responder Responder a todos Reenviar Eliminar Imprimir", true},
      {"https://correo.ejemplo.mx/", "Redactar Bandeja de entrada Borradores Enviados Papelera", true},
      // A language is looked for under its own top-level labels only.
      {"https://mail.beispiel.test/", "Antworten Allen antworten Weiterleiten Löschen", false},
      // Pages that share some words with mail.
      {"https://forum.example.com/", "Reply Quote Report Delete Share Inbox Log out", false},
      {"https://news.example.com/", "Home World Business Contacts About Newsletter Subscribe Report spam", false},
      {"https://forum.beispiel.de/", "Antworten Zitieren Melden Weiterleiten Anmelden", false},
      {"https://bank.esempio.it/", "Accedi Contatti Messaggi Bozze Elimina Rubrica", false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(ShowsMail(u"", Widen(std::string(" ") + row.captions), Widen(row.url)), row.shows) << row.captions;
  }
}

TEST(MailPages, AreKnownByTheHeadOfAMessage) {
  struct Row {
    const char* url;
    const char* text;
    bool shows;
  };
  const std::vector<Row> rows = {
      {"http://x.com/", "Back to list\r\nFrom: Ann <ann@example.com>\r\nSent: Monday\r\nTo: Bob\r\nSubject: Hi", true},
      {"http://x.com/", "Your account\r\nSubject\tYour order\r\nFrom\tShop\r\nDate\tToday 10:22\r\nDear Bob", true},
      {"http://x.de/", "Von: Anna\r\nGesendet: Montag\r\nAn: Otto\r\nBetreff: Hallo", true},
      {"http://x.it/", "Da: Anna\r\nInviato: oggi\r\nA: Bruno\r\nOggetto: Ciao", true},
      {"http://x.fr/", "De\u00a0: Anne\r\nEnvoyé\u00a0: lundi\r\nÀ\u00a0: Bruno\r\nObjet\u00a0: Salut", true},
      {"http://x.fr/", "De : Anne\r\nEnvoyé : lundi\r\nÀ : Bruno\r\nObjet : Salut", true},
      {"http://x.es/", "De: Ana\r\nEnviado: lunes\r\nPara: Bruno\r\nAsunto: Hola", true},
      // Forms and prose.
      {"http://x.com/", "Book a flight\r\nFrom\r\nTo\r\nDate\r\nSearch", false},
      {"http://x.com/", "Contact us\r\nYour name\r\nSubject\r\nMessage\r\nSend", false},
      {"http://x.com/", "The date of the meeting was moved from May to June. Subject to change.", false},
      {"http://x.it/", "Da Roma a Milano\r\nData di partenza\r\nCerca", false},
      {"http://x.fr/", "De Paris à Lyon\r\nDate de départ\r\nRechercher", false},
  };
  for (const Row& row : rows) EXPECT_EQ(ShowsMail(Widen(row.text), u"", Widen(row.url)), row.shows) << row.text;
}

}  // namespace
}  // namespace zeph
