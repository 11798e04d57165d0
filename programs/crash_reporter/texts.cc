#include "texts.h"

namespace crash_reporter {

namespace {

constexpr Texts kTexts[] = {
    {.number = 0,
     .name = L"English",
     .title = L"{} – crash report",
     .crashed = L"{} has crashed",
     .request = L"You can help to find the cause by sending a report to the makers of the program. "
                L"Nothing is sent unless you choose “Send”.",
     .contents = L"The report holds what went wrong and where, the modules that were loaded and "
                 L"their paths, some data on this computer’s system, its local network address, "
                 L"your user name in the program, and a dump of the program’s stacks in memory, "
                 L"which may hold personal data.",
     .recipient = L"Recipient: {}. The connection is not encrypted: others on the network may read "
                  L"what is sent.",
     .files = L"These files are sent:",
     .comment = L"What were you doing? (optional, sent along)",
     .send_earlier_too = L"&Also send earlier reports that could not be sent ({})",
     .open_folder = L"&Open folder",
     .send = L"&Send",
     .do_not_send = L"&Don’t send",
     .earlier_title = L"Crash reports not sent yet",
     .earlier_request = L"Crash reports that could not be sent earlier: {}. Send them now?",
     .sending = L"Sending the report …",
     .not_sent = L"The report on {} could not be sent",
     .kept = L"Its files were kept in this folder, and the next report will offer to send them "
             L"again:",
     .kept_without_server = L"The program names no server to send a report to. The files of the "
                            L"crash were kept in this folder:",
     .not_kept = L"Its files could not be kept either.",
     .close = L"&Close"},
    {.number = 1,
     .name = L"简体中文",
     .title = L"{} – 崩溃报告",
     .crashed = L"{} 已崩溃",
     .request = L"您可以向程序的开发者发送报告，帮助查明原因。只有选择“发送”后才会发送数据。",
     .contents = L"报告包含：出错的类型和位置、已加载的模块及其路径、本机系统的部分信息、本机的局"
                 L"域网地址、您在程序中的用户名，以及程序内存中各线程堆栈的转储，其中可能含有个人"
                 L"数据。",
     .recipient = L"接收方：{}。连接未加密，传输途中可能被他人读取。",
     .files = L"将发送以下文件：",
     .comment = L"崩溃时您正在做什么？（可不填，随报告一起发送）",
     .send_earlier_too = L"同时发送之前未能发送的报告（{} 份）(&A)",
     .open_folder = L"打开文件夹(&O)",
     .send = L"发送(&S)",
     .do_not_send = L"不发送(&D)",
     .earlier_title = L"尚未发送的崩溃报告",
     .earlier_request = L"之前有 {} 份崩溃报告未能发送。现在发送吗？",
     .sending = L"正在发送报告…",
     .not_sent = L"{} 的报告未能发送",
     .kept = L"报告文件已保存在以下文件夹中，下次报告时会询问是否重新发送：",
     .kept_without_server = L"程序未指定接收报告的服务器。崩溃文件已保存在以下文件夹中：",
     .not_kept = L"报告文件也未能保存。",
     .close = L"关闭(&C)"},
    {.number = 2,
     .name = L"日本語",
     .title = L"{} – クラッシュ レポート",
     .crashed = L"{} が異常終了しました",
     .request = L"開発元にレポートを送信すると、原因の調査に役立ちます。［送信する］を選ばないかぎ"
                L"り、何も送信されません。",
     .contents = L"レポートには、エラーの種類と発生場所、読み込まれていたモジュールとそのパス、この"
                 L"コンピューターのシステム情報の一部とローカル ネットワーク アドレス、プログラムで"
                 L"のユーザー名、およびメモリ上のスタックのダンプが含まれます。ダンプには個人情報が"
                 L"含まれることがあります。",
     .recipient = L"送信先：{}。通信は暗号化されないため、途中で第三者に内容を読み取られる可能性が"
                  L"あります。",
     .files = L"送信されるファイル：",
     .comment = L"何をしているときに起きましたか？（任意、一緒に送信されます）",
     .send_earlier_too = L"以前に送信できなかったレポートも送信する（{} 件）(&A)",
     .open_folder = L"フォルダーを開く(&O)",
     .send = L"送信する(&S)",
     .do_not_send = L"送信しない(&D)",
     .earlier_title = L"未送信のクラッシュ レポート",
     .earlier_request =
         L"送信できなかったクラッシュ レポートが {} 件あります。今すぐ送信しますか？",
     .sending = L"レポートを送信しています…",
     .not_sent = L"{} のレポートを送信できませんでした",
     .kept = L"ファイルを次のフォルダーに保存しました。次回のレポートのときに、もう一度送信するか確"
             L"認します。",
     .kept_without_server =
         L"このプログラムにはレポートの送信先サーバーが設定されていません。クラッ"
         L"シュのファイルを次のフォルダーに保存しました。",
     .not_kept = L"ファイルを保存することもできませんでした。",
     .close = L"閉じる(&C)"},
    {.number = 3,
     .name = L"Deutsch",
     .title = L"{} – Absturzbericht",
     .crashed = L"{} ist abgestürzt",
     .request =
         L"Sie können helfen, die Ursache zu finden, indem Sie den Herstellern des Programms "
         L"einen Bericht senden. Ohne Ihre Wahl „Senden“ wird nichts gesendet.",
     .contents =
         L"Der Bericht enthält Art und Ort des Fehlers, die geladenen Module und ihre Pfade, "
         L"einige Angaben zum System dieses Computers, seine Adresse im lokalen Netz, Ihren "
         L"Benutzernamen im Programm und ein Abbild der Stapel des Programms im Speicher, das "
         L"persönliche Daten enthalten kann.",
     .recipient = L"Empfänger: {}. Die Verbindung ist nicht verschlüsselt: Andere im Netz können "
                  L"mitlesen, was gesendet wird.",
     .files = L"Diese Dateien werden gesendet:",
     .comment = L"Was haben Sie gerade getan? (freiwillig, wird mitgesendet)",
     .send_earlier_too = L"&Auch frühere Berichte senden, die nicht gesendet werden konnten ({})",
     .open_folder = L"&Ordner öffnen",
     .send = L"&Senden",
     .do_not_send = L"&Nicht senden",
     .earlier_title = L"Noch nicht gesendete Absturzberichte",
     .earlier_request = L"Absturzberichte, die nicht gesendet werden konnten: {}. Jetzt senden?",
     .sending = L"Der Bericht wird gesendet …",
     .not_sent = L"Der Bericht über {} konnte nicht gesendet werden",
     .kept =
         L"Seine Dateien wurden in diesem Ordner aufbewahrt, und der nächste Bericht bietet an, "
         L"sie erneut zu senden:",
     .kept_without_server = L"Das Programm nennt keinen Server, an den ein Bericht gesendet werden "
                            L"kann. Die Dateien des Absturzes wurden in diesem Ordner aufbewahrt:",
     .not_kept = L"Auch aufbewahrt werden konnten seine Dateien nicht.",
     .close = L"S&chließen"},
};

}  // namespace

std::span<const Texts> AllTexts() noexcept {
  return kTexts;
}

const Texts& TextsFor(std::uint32_t language) noexcept {
  for (const Texts& texts : kTexts) {
    if (texts.number == language) return texts;
  }
  return kTexts[0];
}

std::wstring Filled(std::wstring_view pattern, std::wstring_view what) {
  std::wstring text(pattern);
  const std::size_t place = text.find(L"{}");
  if (place != std::wstring::npos) text.replace(place, 2, what);
  return text;
}

}  // namespace crash_reporter
