// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/base/StringTable.h"

#include <array>
#include <cstddef>

namespace zeph {
namespace {

struct Entry {
  std::uint32_t number;
  std::u16string_view text;  ///< of a literal, and so zero-terminated
};

// Captions and heads are compared with lower-case text; tag names stand in upper case, as documents give them.
constexpr std::array<Entry, kStringCount> kEntries = {{
    // A script that reads a password (0x00), sends it (0x01, 0x02) and then sends the visitor away (0x03), or posts
    // to a chat bot (0x04).
    {0x00, u"password"},
    {0x01, u".ajax("},
    {0x02, u"fetch("},
    {0x03, u"location.replace("},
    {0x04, u"chat_id"},
    // A login form's target: the extension that kits are written in, and how an absolute address begins. 0x06 also
    // completes the script words above: the address that the password goes to.
    {0x05, u"php"},
    {0x06, u"https://"},
    {0x07, u"http://"},
    // The scheme of a form that mails what is typed.
    {0x08, u"mailto"},
    // The word that is compared with a second one before it is searched: the one is part of the other.
    {0x09, u"citi"},
    {0x0A, u"geocities"},
    {0x0B, u""},
    // What stands before a site's own name in its text, lower case; the last also in a page's last two lines.
    {0x0C, u"welcome to"},
    {0x0D, u"sign in to"},
    {0x0E, u"about "},
    {0x0F, u"copyright"},
    {0x10, u"\u00a9"},
    // Captions of a mail page, English and everywhere; 0x20 is French too, 0x22 German and French.
    {0x11, u"reply"},
    {0x12, u"reply all"},
    {0x13, u"reply to all"},
    {0x14, u"forward"},
    {0x15, u"delete"},
    {0x16, u"inbox"},
    {0x17, u"compose"},
    {0x18, u"new message"},
    {0x19, u"drafts"},
    {0x1A, u"sent items"},
    {0x1B, u"sent mail"},
    {0x1C, u"deleted items"},
    {0x1D, u"trash"},
    {0x1E, u"mark as read"},
    {0x1F, u"mark as unread"},
    {0x20, u"contacts"},
    {0x21, u"address book"},
    {0x22, u"spam"},
    {0x23, u"junk"},
    // Heads of a message, English and everywhere. A word that most texts hold has its colon: only its first place
    // counts. 0x24 is French too, 0x27 stands in every language, 0x28 in all but French and Spanish.
    {0x24, u"date"},
    {0x25, u"from:"},
    {0x26, u"to:"},
    {0x27, u"cc:"},
    {0x28, u"bcc:"},
    {0x29, u"subject"},
    // More captions, English and everywhere.
    {0x2A, u"move to"},
    {0x2B, u"attachment"},
    {0x2C, u"new mail"},
    // German heads.
    {0x2D, u"datum"},
    {0x2E, u"von:"},
    {0x2F, u"an:"},
    {0x30, u"betreff"},
    // German captions.
    {0x31, u"antworten"},
    {0x32, u"allen antworten"},
    {0x33, u"weiterleiten"},
    {0x34, u"löschen"},
    {0x35, u"posteingang"},
    {0x36, u"neue nachricht"},
    {0x37, u"e-mail schreiben"},
    {0x38, u"neue e-mail"},
    {0x39, u"entwürfe"},
    {0x3A, u"gesendet"},
    {0x3B, u"papierkorb"},
    {0x3C, u"gelöscht"},
    {0x3D, u"verschieben"},
    {0x3E, u"adressbuch"},
    {0x3F, u"ungelesen"},
    // Italian heads. The third has the line feed before it: "da:" and many a word end like it.
    {0x40, u"data"},
    {0x41, u"da:"},
    {0x42, u"\na:"},
    {0x43, u"oggetto"},
    // Italian captions.
    {0x44, u"rispondi"},
    {0x45, u"rispondi a tutti"},
    {0x46, u"inoltra"},
    {0x47, u"elimina"},
    {0x48, u"posta in arrivo"},
    {0x49, u"nuovo messaggio"},
    {0x4A, u"nuova mail"},
    {0x4B, u"bozze"},
    {0x4C, u"posta inviata"},
    {0x4D, u"cestino"},
    {0x4E, u"posta indesiderata"},
    {0x4F, u"posta eliminata"},
    {0x50, u"sposta in"},
    {0x51, u"rubrica"},
    {0x52, u"segna come"},
    // French heads. Before the colon stands a no-break blank, a plain one or none, so the first two leave the colon out
    // and have the line feed before them: as words they stand in every text.
    {0x53, u"\nde"},
    {0x54, u"\nà"},
    {0x55, u"cci"},
    {0x56, u"objet"},
    // French captions.
    {0x57, u"répondre"},
    {0x58, u"répondre à tous"},
    {0x59, u"transférer"},
    {0x5A, u"supprimer"},
    {0x5B, u"boîte de réception"},
    {0x5C, u"nouveau message"},
    {0x5D, u"écrire"},
    {0x5E, u"brouillons"},
    {0x5F, u"envoyés"},
    {0x60, u"corbeille"},
    {0x61, u"indésirable"},
    {0x62, u"éléments supprimés"},
    {0x63, u"déplacer"},
    {0x64, u"marquer comme"},
    {0x65, u"nouveau courrier"},
    // Spanish heads.
    {0x66, u"fecha"},
    {0x67, u"de:"},
    {0x68, u"para:"},
    {0x69, u"cco:"},
    {0x6A, u"asunto"},
    // Spanish captions.
    {0x6B, u"responder"},
    {0x6C, u"responder a todos"},
    {0x6D, u"reenviar"},
    {0x6E, u"eliminar"},
    {0x6F, u"bandeja de entrada"},
    {0x70, u"redactar"},
    {0x71, u"nuevo mensaje"},
    {0x72, u"correo nuevo"},
    {0x73, u"nuevo correo"},
    {0x74, u"borradores"},
    {0x75, u"enviados"},
    {0x76, u"papelera"},
    {0x77, u"no deseado"},
    {0x78, u"elementos eliminados"},
    {0x79, u"mover a"},
    {0x7A, u"contactos"},
    {0x7B, u"marcar como"},
    // Scripts that hide what they do. 0x7E (a comment) and 0x7F (code) lead to the name 0x80, 0x81 (code) to the
    // name 0x82; 0x7C names an encoded script language, 0x7D a long line of escapes.
    {0x7C, u"encoded script"},
    {0x7D, u"escaped script"},
    {0x7E, u"HTML Encryption provided by"},
    {0x7F, u"function(_0x"},
    {0x80, u"obfuscated page"},
    {0x81, u"eval(function(p,a,c,k,e,"},
    {0x82, u"packed script"},
    // A page saved to disk. Comments that programs leave: 0x86 leads to the name 0x85, 0x87 to 0x84, 0x88 with 0x89
    // to 0x83; then the folders that they put beside the page.
    {0x83, u"saved in one file"},
    {0x84, u"mirrored site"},
    {0x85, u"saved from url"},
    {0x86, u"saved from url="},
    {0x87, u"Mirrored from"},
    {0x88, u"Page saved with"},
    {0x89, u"saved date:"},
    {0x8A, u"_files/"},
    {0x8B, u"_fichiers/"},
    // Elements that count as blocks of text.
    {0x8C, u"P"},
    {0x8D, u"DIV"},
    {0x8E, u"TR"},
    // Elements with a background image.
    {0x8F, u"TABLE"},
    {0x90, u"TD"},
    // Further elements of a page; a comment's tag name is an exclamation mark. 0x9C is the one searched for 0xAB.
    {0x91, u"INPUT"},
    {0x92, u"OBJECT"},
    {0x93, u"EMBED"},
    {0x94, u""},
    {0x95, u"FRAME"},
    {0x96, u"IFRAME"},
    {0x97, u"BUTTON"},
    {0x98, u"BODY"},
    {0x99, u"!"},
    {0x9A, u"LINK"},
    {0x9B, u"META"},
    {0x9C, u"SCRIPT"},
    {0x9D, u"A"},
    // Input fields: the type attribute and its values. The last six types are neither text nor a caption.
    {0x9E, u"text"},
    {0x9F, u"TYPE"},
    {0xA0, u"password"},
    {0xA1, u"submit"},
    {0xA2, u"button"},
    {0xA3, u"VALUE"},
    {0xA4, u"checkbox"},
    {0xA5, u"hidden"},
    {0xA6, u"image"},
    {0xA7, u"radio"},
    {0xA8, u"range"},
    {0xA9, u"reset"},
    // The http-equiv of a timed refresh, and what a script holds that writes its page.
    {0xAA, u"refresh"},
    {0xAB, u"document.write"},
    // The key of package files and of the exchange with the server. Whoever changes it changes both.
    {0xAC, u"QeCwBjx4fj165XEm5U0mPNX34supbytf"},
    // Labels and texts of log lines.
    {0xAD, u"ClassifyURL"},
    {0xAE, u"SetResults"},
    {0xAF, u"ConfigurationMgr::LoadPackage"},
    {0xB0, u"URL classified as spoofing. URL:"},
    {0xB1, u"URL cleared by the server. URL:"},
    {0xB2, u"The package is not signed by an accepted signer and isn't loaded"},
    // Reserved.
    {0xB3, u""},
    {0xB4, u""},
    {0xB5, u""},
    {0xB6, u""},
    {0xB7, u""},
    {0xB8, u""},
    {0xB9, u""},
    // The exchange with the server: path of checks and reports, path of reports with code 4, the commands.
    {0xBA, u"/zeph/exchange"},
    {0xBB, u"/zeph/feedback"},
    {0xBC, u"check"},
    {0xBD, u"report"},
    // The folder that marks a server installation.
    {0xBE, u"zeph-server"},
    // Whose signature a package may bear.
    {0xBF, u"Corvanta"},
    {0xC0, u"Corvanta Release"},
    {0xC1, u"Corvanta Package Signing"},
    // Reserved, and the line for a warning that is held back.
    {0xC2, u""},
    {0xC3, u"Spoofing warning held back"},
    // The settings key: 0xC4, vendor, 0xC5, module; 0xC6 is the vendor until another is set.
    {0xC4, u"Software\\"},
    {0xC5, u"\\Shared Agent\\"},
    {0xC6, u"Corvanta"},
    {0xC7, u""},
    // Names of the settings store's values.
    {0xC8, u"RememberedSite"},
    {0xC9, u"Reserved1"},
    {0xCA, u"Reserved2"},
    {0xCB, u"Reserved3"},
    {0xCC, u"QuietSince"},
    {0xCD, u"LastFlaggedUrl"},
    {0xCE, u"LastFlaggedScore"},
    {0xCF, u"LastFlaggedTime"},
    {0xD0, u"Reserved4"},
    {0xD1, u"Reserved5"},
    {0xD2, u"Reserved6"},
    {0xD3, u"Reserved7"},
    {0xD4, u"Reserved8"},
    {0xD5, u"Reserved9"},
    // Redirecting URLs: what stands before a key (0xD6, 0xD7, which also ends its value) and behind it (0xD8); what
    // ends numeric options; then the beginnings of a target: 0xDA is replaced by 0xDC, and 0xDC completes a target
    // that begins neither with it nor with 0xDD.
    {0xD6, u"?"},
    {0xD7, u"&"},
    {0xD8, u"="},
    {0xD9, u"/"},
    {0xDA, u"//"},
    {0xDB, u""},
    {0xDC, u"http://"},
    {0xDD, u"https://"},
}};

constexpr bool EveryRowHasItsNumber() {
  for (std::size_t row = 0; row < kEntries.size(); ++row) {
    if (kEntries[row].number != row) return false;
  }
  return true;
}
static_assert(EveryRowHasItsNumber());

}  // namespace

const char16_t* GetString(std::uint32_t id) noexcept {
  const std::uint32_t entry = id - kStringIdBase;
  if ((id & kStringIdBase) == 0 || entry >= kStringCount) return nullptr;
  return kEntries[entry].text.data();
}

std::u16string_view StringEntry(std::uint32_t entry) noexcept {
  return entry < kStringCount ? kEntries[entry].text : std::u16string_view();
}

}  // namespace zeph
