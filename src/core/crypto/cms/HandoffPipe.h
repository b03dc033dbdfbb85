#pragma once

#include <QString>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "crypto/cms/OpenSsl.h"

// A BIO whose bytes a second thread writes on into another BIO (`downstream`), so that the work
// on either side of it runs on two cores: the content is digested on one while it is encrypted or
// decrypted on the other, or it is written to a file while the next part is encrypted. The bytes
// in flight are bounded (kBlockSize * kBlocksInFlight) and their blocks reused. An encryption
// stacks two pipes, so together they hold at most 1.5 MiB (the blocks queued, the one being
// filled and the one being written); larger or more blocks bought no speed, only memory.
// `downstream` belongs to the second thread from construction until finish().
class HandoffPipe {
public:
    static constexpr size_t kBlockSize = 128 * 1024;
    static constexpr size_t kBlocksInFlight = 4;

    // Throws a TVXException when the BIO cannot be made.
    explicit HandoffPipe(BIO* downstream);
    // Stops the second thread without waiting for what is still queued.
    ~HandoffPipe();
    HandoffPipe(const HandoffPipe&) = delete;
    HandoffPipe& operator=(const HandoffPipe&) = delete;

    // Where the first thread writes. A write fails once the second thread has failed.
    [[nodiscard]] BIO* bio() const noexcept { return m_bio.get(); }

    // Waits until everything written went downstream and `downstream` was flushed. False when
    // the second thread failed, with OpenSSL's account of it in `failure`.
    [[nodiscard]] bool finish(QString& failure);

private:
    static int pipeWrite(BIO* bio, const char* data, int size);
    static long pipeCtrl(BIO* bio, int command, long number, void* pointer);
    // Queues the block being filled and takes a fresh one; false once the second thread failed.
    bool handOver();
    void run();
    void fail();

    BIO* m_downstream;
    nivossl::BioPtr m_bio;
    std::vector<char> m_filling;  // touched by the first thread only
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::vector<char>> m_queue;
    std::vector<std::vector<char>> m_spare;
    bool m_ended = false;
    bool m_aborted = false;
    bool m_failed = false;
    QString m_failure;
    std::thread m_worker;
};
