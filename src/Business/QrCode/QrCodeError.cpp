#include "QrCodeError.h"

const QString QrCodeError::domain = QStringLiteral("QrcodeDomain");

QString QrCodeError::textOfID(qint64 id)
{
    switch (id) {
    case Ok:
        return QStringLiteral("ok");
    case ParseFailed:
        return QStringLiteral("返回内容解析失败");
    case ServerFailed:
        return QStringLiteral("二维码服务器返回的结果为失败");
    case RequestTimeout:
        return QStringLiteral("请求二维码超时");
    case ScanTimeout:
        return QStringLiteral("获取扫码结果超时");
    case DecryptFailed:
        return QStringLiteral("解密用户信息时失败");
    case InitFailed:
        return QStringLiteral("初始化错误");
    default:
        return QString();
    }
}

DVError QrCodeError::createErrorWithID(qint64 id, const std::optional<QString> &info)
{
    QString text = textOfID(id);
    if (!text.isNull() && info)
        text = QStringLiteral("%1,%2").arg(text, *info);
    return DVError(domain, id, text);
}
