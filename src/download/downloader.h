#pragma once

#include "core/CoreExport.h"
#include "core/ErrorCode.h"

#include <QMap>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QUrl>

// Results travel through queued connections and signal spies as well as direct calls.
Q_DECLARE_METATYPE(Morvantix::ErrorCode)

class QFile;
class QNetworkAccessManager;
class QNetworkReply;

// The transfer of one file. It asks for the bytes after those already on disk and appends what the
// manager's transfer loop hands it; it never reads the network on its own, so the loop alone decides
// how fast bytes move. Completion, a local write failure and a network failure come back through
// DownloadResult.
//
// A partial file is only continued from the server's copy it came from: the validator of the first
// response is kept beside it ("<file>.validator") and sent back with the resume, and an answer that
// cannot be shown to be that copy starts the file again from zero.
class CORE_EXPORT downloader : public QObject
{
    Q_OBJECT
public:
    downloader(QObject* parent, QNetworkAccessManager* networkManager, qint64* totalReceived);
    ~downloader() override;

    void SetRequest(const QString& filePath, const QUrl& url, qint64 fileSize);

    // Reads at most maxBytes, never more than the file still lacks, and appends them to the file.
    // Returns the number of bytes read.
    qint64 TransferData(qint64 maxBytes);
    qint64 BytesAvailable() const;
    bool IsComplete() const;
    const QString& GetFilePath() const { return m_filePath; }
    void SetReadBufferSize(qint64 size);
    void Release();

    // Local path -> 1 while a transfer has it open for writing, 0 once closed.
    static QMap<QString, int> s_writingFiles;

signals:
    void DownloadResult(Morvantix::ErrorCode code, QString errStr, QString filename);
    void ReadyToTransfer();
    // The partial file was thrown away because the server's copy is not the one it came from.
    void PartialDiscarded(qint64 bytes);

public slots:
    void OnFinished();
    void ReStartDownload();
    void OnReadyToTransfer();

private:
    void OpenFile();
    void CloseFile();
    void ReleaseReply();
    qint64 BytesMissing() const;
    bool CarriesFileData() const;
    // False when the response cannot continue the partial file: the file is then started again.
    bool BeginResponse();
    bool SkipBytesBeforeOffset();
    bool ContinuesPartial(const QByteArray& validator) const;
    void DiscardPartial();
    QString ValidatorPath() const;
    void StoreValidator(const QByteArray& validator) const;

    qint64* m_pBytesTotalReceived;
    QString m_filePath;
    QUrl m_downloadUrl;
    QFile* m_file = nullptr;
    QSharedPointer<QNetworkReply> m_reply;
    QNetworkAccessManager* m_networkManager;
    qint64 m_bytesReceived = 0;
    // Applied to every reply as it is made, restarts included: a reply without it buffers without
    // bound until the manager next sets it.
    qint64 m_readBufferSize = 4 << 20;
    qint64 m_fileSize = 0;
    qint64 m_bytesExisting = 0;
    // Bytes at the head of a response that ignored "Range": the file already has them.
    qint64 m_bytesToSkip = -1; // -1 until the response's status is known
    QByteArray m_buffer;
    QByteArray m_partialValidator; // of the server's copy the partial file came from
    bool m_bRestartQueued = false; // a restart from zero waits for the event loop
};
