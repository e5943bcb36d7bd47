#include "download/downloader.h"

#include "download/DownloadTexts.h"
#include "files/QFileUtils.h"
#include "log/Logger.h"

#include <QDebug>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <utility>

using Morvantix::ErrorCode;

QMap<QString, int> downloader::s_writingFiles;

namespace {
const QString kManagerTag = QStringLiteral("DownloadManager");
const QString kWriteTag = QStringLiteral("WriteThread");
constexpr int kBufferSize = 256 * 1024;
// An ETag or a date; anything longer did not come from a sane server.
constexpr qint64 kMaxValidatorSize = 1024;
} // namespace

downloader::downloader(QObject* parent, QNetworkAccessManager* networkManager, qint64* totalReceived)
    : QObject(parent)
    , m_pBytesTotalReceived(totalReceived)
    , m_networkManager(networkManager)
{ }

downloader::~downloader()
{
    if (m_file || m_reply)
        Release();
}

void downloader::SetRequest(const QString& filePath, const QUrl& url, qint64 fileSize)
{
    m_filePath = filePath;
    m_downloadUrl = url;
    m_fileSize = fileSize;
}

void downloader::ReStartDownload()
{
    m_bRestartQueued = false;
    ReleaseReply();
    CloseFile();

    if (!QFile::exists(m_filePath)) {
        Logger::LogInfo(kManagerTag, QStringLiteral("file is not exist "));
        m_bytesExisting = 0;
    } else {
        m_bytesExisting = QFileUtils::GetFileSize(m_filePath);
    }
    Logger::LogInfo(kManagerTag, QStringLiteral("we start download %1").arg(m_filePath));

    if (m_bytesExisting == m_fileSize) {
        Logger::LogInfo(kManagerTag,
            QStringLiteral("%1 is downloaded, url is %2 size is %3")
                .arg(m_filePath, m_downloadUrl.toString(), QString::number(m_bytesExisting)));
        StoreValidator(QByteArray());
        emit DownloadResult(ErrorCode::FileFinished, QString(), m_filePath);
        return;
    }
    m_partialValidator.clear();
    QFile validatorFile(ValidatorPath());
    if (m_bytesExisting > 0 && validatorFile.open(QIODevice::ReadOnly))
        m_partialValidator = validatorFile.read(kMaxValidatorSize).trimmed();

    QNetworkRequest request(m_downloadUrl);
    // Redirects are followed, but never from https to http.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setRawHeader("Range", QStringLiteral("bytes=%1-").arg(m_bytesExisting).toLatin1());
    // A server whose copy changed since then answers with the whole new file instead of its tail.
    if (!m_partialValidator.isEmpty())
        request.setRawHeader("If-Range", m_partialValidator);
    // The resume offset counts bytes of the file; a compressed response would make it count bytes
    // of something else, and the network layer would inflate it behind our back.
    request.setRawHeader("Accept-Encoding", "identity");

    m_bytesReceived = 0;
    m_bytesToSkip = -1;
    Logger::LogInfo(kManagerTag,
        QStringLiteral("download url is %1, received bytes=%2")
            .arg(m_downloadUrl.toString(), QString::number(m_bytesExisting)));

    m_reply = QSharedPointer<QNetworkReply>(m_networkManager->get(request), &QObject::deleteLater);
    m_reply->setReadBufferSize(m_readBufferSize);
    connect(m_reply.data(), &QNetworkReply::finished, this, &downloader::OnFinished);
    connect(m_reply.data(), &QNetworkReply::readyRead, this, &downloader::OnReadyToTransfer);

    OpenFile();
}

void downloader::OpenFile()
{
    m_file = new QFile(m_filePath, this);
    // Unbuffered, so that a full disk shows at the write that hit it instead of at a later flush
    // nobody checks, and so that large chunks are not copied through QFile's own buffer.
    m_file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered);

    auto it = s_writingFiles.find(m_filePath);
    if (it == s_writingFiles.end())
        s_writingFiles.insert(m_filePath, 1);
    else if (it.value() != 1)
        it.value() = 1;
    else
        Logger::LogInfo(kWriteTag, QStringLiteral("m_filePath %1 is error").arg(m_filePath));
}

qint64 downloader::BytesMissing() const
{
    return m_fileSize - m_bytesExisting - m_bytesReceived;
}

bool downloader::CarriesFileData() const
{
    // An error page is not part of the file: writing it would corrupt the file, and counting it as
    // arrived data would let a failing server restart the job forever.
    const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    return !status.isValid() || status.toInt() < 400;
}

QString downloader::ValidatorPath() const
{
    return m_filePath + QStringLiteral(".validator");
}

void downloader::StoreValidator(const QByteArray& validator) const
{
    QFile file(ValidatorPath());
    if (validator.isEmpty() || validator.size() > kMaxValidatorSize) {
        file.remove();
        return;
    }
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(validator);
}

bool downloader::ContinuesPartial(const QByteArray& validator) const
{
    // The tail must start where the partial ends, and come from the partial's own copy: a server
    // may honour "Range" yet ignore "If-Range", and then sends the tail of whatever it has now.
    const QByteArray range = m_reply->rawHeader("Content-Range");
    const QByteArray expected = "bytes " + QByteArray::number(m_bytesExisting) + '-';
    const bool sameCopy
        = validator.isEmpty() || m_partialValidator.isEmpty() || validator == m_partialValidator;
    return range.startsWith(expected) && sameCopy;
}

void downloader::DiscardPartial()
{
    if (m_file)
        m_file->resize(0);
    emit PartialDiscarded(m_bytesExisting);
    m_bytesExisting = 0;
}

bool downloader::BeginResponse()
{
    const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    QByteArray validator = m_reply->rawHeader("ETag");
    if (validator.isEmpty())
        validator = m_reply->rawHeader("Last-Modified");
    m_bytesToSkip = 0;
    if (status == 206 && m_bytesExisting > 0 && !ContinuesPartial(validator)) {
        Logger::LogInfo(kManagerTag,
            QStringLiteral("%1: the server's part does not continue the partial file, starting it again")
                .arg(m_filePath));
        DiscardPartial();
        StoreValidator(QByteArray());
        // A fresh request without a validator asks for the whole file; this reply's bytes belong
        // elsewhere and are dropped with it.
        ReleaseReply();
        m_bRestartQueued = true;
        QTimer::singleShot(0, this, [this] {
            if (std::exchange(m_bRestartQueued, false))
                ReStartDownload();
        });
        return false;
    }
    // A full answer to a ranged request starts at byte 0. With the partial's own validator it is the
    // same copy from a server that ignores "Range", and only the head is dropped; otherwise the
    // partial belongs to another copy, and appending would splice two files into one.
    if (status == 200 && m_bytesExisting > 0) {
        if (!validator.isEmpty() && validator == m_partialValidator) {
            m_bytesToSkip = m_bytesExisting;
        } else {
            Logger::LogInfo(
                kManagerTag, QStringLiteral("%1 changed on the server, starting it again").arg(m_filePath));
            DiscardPartial();
        }
    }
    if (m_bytesExisting == 0)
        StoreValidator(validator);
    return true;
}

bool downloader::SkipBytesBeforeOffset()
{
    if (m_bytesToSkip < 0 && !BeginResponse())
        return false;
    while (m_bytesToSkip > 0 && m_reply->bytesAvailable() > 0) {
        const qint64 skipped = m_reply->skip(m_bytesToSkip);
        if (skipped <= 0)
            break;
        m_bytesToSkip -= skipped;
    }
    return true;
}

qint64 downloader::TransferData(qint64 maxBytes)
{
    if (!m_reply || !CarriesFileData() || !SkipBytesBeforeOffset())
        return 0;

    // Bytes pass through one buffer that lives as long as the transfer: a fresh allocation per
    // read costs more in page faults than the copy itself at loopback speeds.
    if (m_buffer.isEmpty())
        m_buffer.resize(kBufferSize);
    const qint64 wanted = qMax<qint64>(0, qMin(maxBytes, BytesMissing()));
    qint64 read = 0;
    bool writeFailed = false;
    while (read < wanted) {
        const qint64 n = m_reply->read(m_buffer.data(), qMin<qint64>(wanted - read, m_buffer.size()));
        if (n <= 0)
            break;
        read += n;
        m_bytesReceived += n;
        *m_pBytesTotalReceived += n;
        const qint64 written = m_file ? m_file->write(m_buffer.constData(), n) : -1;
        writeFailed = writeFailed || written < n;
    }
    if (writeFailed)
        emit DownloadResult(ErrorCode::WriteFailed, QString(), m_filePath);

    if (m_bytesExisting + m_bytesReceived >= m_fileSize) {
        if (m_file)
            m_file->flush();
        StoreValidator(QByteArray());
        emit DownloadResult(ErrorCode::FileFinished, QString(), m_filePath);
    }
    return read;
}

qint64 downloader::BytesAvailable() const
{
    if (!m_reply || !CarriesFileData())
        return 0;
    const qint64 skipped = qMax<qint64>(0, m_bytesToSkip);
    return qMax<qint64>(0, m_reply->bytesAvailable() - skipped);
}

bool downloader::IsComplete() const
{
    return m_bytesExisting + m_bytesReceived >= m_fileSize;
}

void downloader::SetReadBufferSize(qint64 size)
{
    m_readBufferSize = size;
    if (m_reply)
        m_reply->setReadBufferSize(size);
}

void downloader::Release()
{
    m_bRestartQueued = false;
    CloseFile();
    ReleaseReply();
}

void downloader::OnReadyToTransfer()
{
    if (!m_reply || !CarriesFileData())
        return;
    // Bytes before the resume offset are dropped as they arrive, not when the budget allows: under a
    // speed limit the reply's buffer is smaller than the offset, and waiting would stall the reply.
    if (SkipBytesBeforeOffset())
        emit ReadyToTransfer();
}

void downloader::OnFinished()
{
    if (!m_reply)
        return;
    const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    Q_UNUSED(status);
    const QNetworkReply::NetworkError error = m_reply->error();
    Logger::LogInfo(QStringLiteral("Downloader"), QStringLiteral("timeout error code is %1").arg(int(error)));

    if (error == QNetworkReply::OperationCanceledError)
        return;
    if (CarriesFileData() && !SkipBytesBeforeOffset())
        return;
    int code = error;
    if (error == QNetworkReply::NoError) {
        // Completion is counted in bytes by TransferData, and what the reply still buffers is pulled
        // by the transfer loop after it finished. A clean end short of the file is a connection the
        // network layer saw close early: a network failure, not a stall to wait out.
        if (BytesAvailable() >= BytesMissing())
            return;
        code = QNetworkReply::RemoteHostClosedError;
    }
    // The bytes that did arrive are the server's; keeping them is progress the restart builds on.
    TransferData(BytesAvailable());
    // The write may have ended this transfer (the file complete, the disk full).
    if (!m_reply)
        return;

    const QString text = QStringLiteral("%1 [code:%2]").arg(DownloadTexts::networkFailed()).arg(code);
    qDebug() << "timeout errorStr" << text << " >>> " << m_downloadUrl;
    ReleaseReply();
    emit DownloadResult(ErrorCode::NetworkFailed, text, m_filePath);
}

void downloader::CloseFile()
{
    if (!m_file)
        return;
    Logger::LogInfo(kWriteTag, QStringLiteral("filePtr<<<<<<<<< Close >>>>> %1").arg(m_filePath));
    m_file->close();
    m_file->deleteLater();
    m_file = nullptr;

    int& state = s_writingFiles[m_filePath];
    if (state == 1) {
        state = 0;
        return;
    }
    Logger::LogInfo(kWriteTag,
        QStringLiteral("m_filePath %1 is error value is %2").arg(m_filePath, QString::number(state)));
}

void downloader::ReleaseReply()
{
    Logger::LogInfo(QStringLiteral("DownloaderManager"),
        QStringLiteral("filePtr<<<<<<<<< %1 :ReleaseReply").arg(m_filePath));
    if (!m_reply)
        return;
    // Dropped replies must not call back into a transfer that has moved on; deleting one that is
    // still running aborts its request.
    m_reply->disconnect(this);
    m_reply->ignoreSslErrors();
    m_reply.reset();
}
