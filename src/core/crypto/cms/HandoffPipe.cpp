#include "crypto/cms/HandoffPipe.h"

#include <algorithm>

#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kCannotStart = u"Cannot hand the work over to a second thread"_s;

}  // namespace

HandoffPipe::HandoffPipe(BIO* downstream) : m_downstream(downstream) {
    static const nivossl::BioMethodPtr method =
        nivossl::sourceSinkMethod("handoff", nullptr, pipeWrite, pipeCtrl);
    m_bio.reset(method ? BIO_new(method.get()) : nullptr);
    if (!m_bio) {
        nivossl::fail(TVXCryptoOperationException, kCannotStart);
    }
    BIO_set_data(m_bio.get(), this);
    m_filling.reserve(kBlockSize);
    m_worker = std::thread([this] { run(); });
}

HandoffPipe::~HandoffPipe() {
    if (m_worker.joinable()) {
        {
            const std::lock_guard lock(m_mutex);
            m_aborted = true;
        }
        m_changed.notify_all();
        m_worker.join();
    }
}

bool HandoffPipe::finish(QString& failure) {
    if (!m_filling.empty()) {
        (void)handOver();
    }
    {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
    }
    m_changed.notify_all();
    m_worker.join();
    failure = m_failure;
    return !m_failed;
}

int HandoffPipe::pipeWrite(BIO* bio, const char* data, int size) {
    auto* pipe = static_cast<HandoffPipe*>(BIO_get_data(bio));
    const auto length = static_cast<size_t>(size);
    for (size_t taken = 0; taken < length;) {
        const size_t count = std::min(length - taken, kBlockSize - pipe->m_filling.size());
        pipe->m_filling.insert(pipe->m_filling.end(), data + taken, data + taken + count);
        taken += count;
        if (pipe->m_filling.size() == kBlockSize && !pipe->handOver()) {
            return -1;
        }
    }
    return size;
}

long HandoffPipe::pipeCtrl(BIO* bio, int command, long /*number*/, void* /*pointer*/) {
    auto* pipe = static_cast<HandoffPipe*>(BIO_get_data(bio));
    if (command == BIO_CTRL_FLUSH) {
        return pipe->m_filling.empty() || pipe->handOver() ? 1 : 0;
    }
    return 0;
}

bool HandoffPipe::handOver() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_queue.size() < kBlocksInFlight || m_failed; });
    if (m_failed) {
        return false;
    }
    m_queue.push_back(std::move(m_filling));
    if (m_spare.empty()) {
        m_filling = {};
        m_filling.reserve(kBlockSize);
    } else {
        m_filling = std::move(m_spare.back());
        m_spare.pop_back();
    }
    lock.unlock();
    m_changed.notify_all();
    return true;
}

void HandoffPipe::run() {
    ERR_clear_error();
    for (;;) {
        std::vector<char> block;
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [this] { return !m_queue.empty() || m_ended || m_aborted; });
            if (m_aborted) {
                return;
            }
            if (m_queue.empty()) {
                break;
            }
            block = std::move(m_queue.front());
            m_queue.pop_front();
        }
        m_changed.notify_all();
        for (size_t written = 0; written < block.size();) {
            const int taken = BIO_write(m_downstream, block.data() + written,
                                        static_cast<int>(block.size() - written));
            if (taken <= 0) {
                fail();
                return;
            }
            written += static_cast<size_t>(taken);
        }
        block.clear();
        const std::lock_guard lock(m_mutex);
        m_spare.push_back(std::move(block));
    }
    if (BIO_ctrl(m_downstream, BIO_CTRL_FLUSH, 0, nullptr) <= 0) {
        fail();
    }
    ERR_clear_error();
}

void HandoffPipe::fail() {
    // OpenSSL's error queue belongs to this thread; its text travels to the other one.
    const QString text = nivossl::Errors::drain().text();
    {
        const std::lock_guard lock(m_mutex);
        m_failed = true;
        m_failure = text;
    }
    m_changed.notify_all();
}
