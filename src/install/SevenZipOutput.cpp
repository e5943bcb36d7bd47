#include "install/SevenZipOutput.h"

namespace SevenZipOutput {

int PercentOf(const QString& output)
{
    const int pos = output.indexOf(QLatin1Char('%'));
    if (pos < 0)
        return -1;
    const int start = qMax(0, pos - 2);
    return output.mid(start, pos - start).trimmed().toInt();
}

ExitCodeMeaning MeaningOfExitCode(int exitCode, int previousCode)
{
    switch (exitCode) {
    case 0:
        return { 0, QString() };
    case 1:
        return { 1,
            QStringLiteral("解压完成，但有文件未能写入，可能正被其他程序占用 (unpacked with warnings; some "
                           "files may be in use)") };
    case kFatalError:
        return { 2,
            QStringLiteral("解压失败，安装包已损坏或无法读取，请重新下载 (the package is damaged or "
                           "unreadable; download it again)") };
    case 7:
        return { 3,
            QStringLiteral("解压程序参数错误，请重新安装启动器 (the unpack program rejected its command "
                           "line; reinstall the launcher)") };
    case 8:
        return { 4,
            QStringLiteral("内存不足，无法解压，请关闭其他程序后重试 (not enough memory to unpack; close "
                           "other programs and retry)") };
    case kUserStopped:
        return { 5, QStringLiteral("解压已中止 (unpacking was stopped)") };
    default:
        return { previousCode,
            QStringLiteral("解压失败，错误码 %1 (unpacking failed with code %1)").arg(exitCode) };
    }
}

QString NotStartedText(const QString& reason)
{
    return QStringLiteral("无法启动解压程序：%1 (the unpack program could not be started)").arg(reason);
}

QString CrashedText()
{
    return QStringLiteral("解压程序意外退出，请重试 (the unpack program crashed; try again)");
}

QString UnsafeDestinationText(const QString& folder)
{
    return QStringLiteral("解压目录“%1”无效，请重新选择安装目录 (the unpack folder is not usable; choose "
                          "another install folder)")
        .arg(folder);
}

} // namespace SevenZipOutput
