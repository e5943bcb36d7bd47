#pragma once

#include "UpdatePart.h"

#include <functional>

// What an update does before its first step: reads the settings (finishing a swap a stopped run left
// pending), opens the channel, reads the server's documents and plans. It ends in exactly one of its
// signals failed, succeeded or ready; which state the run goes on to is the job's to decide.
class UpdatePreparation : public UpdatePart
{
    Q_OBJECT
public:
    // Where the run goes on after preparing.
    enum class Next
    {
        Chain, // the plan's steps, from the first
        VerifyGame, // a stopped run left the newest version unverified
        VerifyInstalled, // the verify or repair command
    };
    Q_ENUM(Next)

    UpdatePreparation(UpdateRun& run, StageRunner* stages, TrustGate* trust, QObject* parent = nullptr);

    void start();

signals:
    void planned(const UpdatePlan& plan);
    void succeeded(Outcome outcome, const QString& message);
    void ready(UpdatePreparation::Next next);

private:
    bool readSettings();
    bool finishInterruptedSwap();
    void openChannel();
    void fetchInfo();
    void onInfo(const QString& text, int code);
    void fetchGuide();
    void decide(const QString& guide);
    void preferFullPackageWhenSmaller();
    // The last version of the list is the one the job verifies against and must exist; the others
    // only feed the disk space estimate, which assumes every file changed when one is missing.
    void fetchManifests(QStringList versions, std::function<void()> then);
    // Keeps the manifest fetched for `version`; false after failing.
    bool takeManifest(const QString& version, const QString& text, int code, bool bRequired);
    void planSteps();
    void upToDate(const QString& version);

    // False after failing: the document is not as the signed list says.
    bool admit(const QString& path, const QString& text);
    bool documentTooLarge(int code, const QString& name, qint64 cap);
};
