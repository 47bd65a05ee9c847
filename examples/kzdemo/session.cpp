// Session steps: the client logs in with an enciphered password, the server
// checks it and answers; at the end the client logs out. This family takes its
// messages as the connection's signals.
#include "demo.h"

#include <QCoreApplication>

namespace {

const QString kAccount = QStringLiteral("operator");
const QString kPassword = QStringLiteral("s3cret!");

// The password arrives with the cipher's padding (bytes 1..15) at its end.
QString withoutPadding(QString s)
{
    while (!s.isEmpty() && s.back().unicode() >= 1 && s.back().unicode() <= 15) s.chop(1);
    return s;
}

void onLogin(Peer& p, const QString& account, const QString& password)
{
    const bool ok = account == kAccount && withoutPadding(password) == kPassword;
    p.handled(QStringLiteral("Login account=%1 password=%2 (deciphered) -> %3")
                  .arg(account, withoutPadding(password),
                       ok ? QStringLiteral("accepted") : QStringLiteral("rejected")));
    p.resolver.setAccount(account);
    p.resolver.lanLoginResult(ok, ok ? 0 : 1, true);
    p.sent(QStringLiteral("LoginResult ok=%1").arg(ok));
}

void onLoginResult(Peer& p, bool ok, int code, bool codeBit0, bool second)
{
    p.handled(QStringLiteral("LoginResult ok=%1 code=%2 bit0=%3 second=%4")
                  .arg(ok)
                  .arg(code)
                  .arg(codeBit0)
                  .arg(second));
    if (!ok) return p.demo->fail(QStringLiteral("login rejected"));
    p.demo->next();
}

void onLogout(Peer& p, int value)
{
    p.handled(QStringLiteral("Logout value=%1").arg(value));
    p.socket->disconnectFromHost();
}

} // namespace

void addSessionSteps(Demo& demo)
{
    Peer& server = demo.server;
    Peer& client = demo.client;
    QObject::connect(&server, &KZConnection::login,
                     [&server](const QString& a, const QString& p) { onLogin(server, a, p); });
    QObject::connect(&server, &KZConnection::logout, [&server](int v) { onLogout(server, v); });
    QObject::connect(&client, &KZConnection::loginResult,
                     [&client](bool ok, int code, bool bit0, bool second) {
                         onLoginResult(client, ok, code, bit0, second);
                     });

    demo.steps.append([&demo] {
        demo.client.sent(QStringLiteral("Login account=%1").arg(kAccount));
        demo.client.resolver.lanLogin(kAccount, kPassword);
    });
    // Logging out is always the last step: later families insert theirs before it.
    demo.steps.append([&demo] {
        demo.client.sent(QStringLiteral("Logout"));
        demo.client.resolver.lanLogout(0);
    });
}
