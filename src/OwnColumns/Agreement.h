// How ranks agree about a failure, before they exchange anything else.
#ifndef SYLVORA_OWNCOLUMNS_AGREEMENT_H
#define SYLVORA_OWNCOLUMNS_AGREEMENT_H

#include <mutex>
#include <string>
#include <utility>

#include "Ranks.h"
#include "god/CallContext.h"
#include "god/Report.h"

namespace sylvora {

// Keeps the messages of the calling thread, and of the loops that it starts, for its own lifetime:
// what would go to standard error, and what would go to standard output.
class KeptMessages {
  public:
    KeptMessages();
    KeptMessages(const KeptMessages&) = delete;
    KeptMessages& operator=(const KeptMessages&) = delete;

    const std::string& Errors() const { return errors; }
    const std::string& Output() const { return output; }

  private:
    static void Keep(void* context, int stream, const char* message);

    std::string errors, output;
    std::mutex mutex;
    const CallContext context;
    const ContextScope scope;
};

// Runs a step that this rank takes by itself, which returns 0, or -1 after a message. Its messages
// do not appear. Returns the message of a failure; empty: it succeeded.
template <typename Step>
std::string ComplaintOf(const Step& step) {
    const KeptMessages messages;
    if (Guarded([&] { return step(); }) == 0) return "";
    return messages.Errors().empty() ? "ERROR: Failed to allocate memory!\n" : messages.Errors();
}

// Collective; throws RanksLost. The complaint of the lowest rank that has one, at all ranks. Empty:
// none has. If rank 0 has none, the text names the rank.
std::string FirstComplaint(Ranks& ranks, const std::string& mine);

// Collective; throws RanksLost. Copies the text of rank `root` to all ranks.
std::string BroadcastText(Ranks& ranks, const std::string& text, int root);

// ComplaintOf and FirstComplaint.
template <typename Step>
std::string ComplaintOfAny(Ranks& ranks, const Step& step) {
    return FirstComplaint(ranks, ComplaintOf(step));
}

// Runs a collective operation that returns a status. If an exchange fails or memory is lacking, it
// writes a message that names this rank, and returns -1.
template <typename Operation>
[[nodiscard]] int Collective(const Communicator& communicator, const Operation& operation) {
    const int rank = communicator.Rank();
    try {
        return operation();
    } catch (const RanksLost& lost) {
        return Fail("ERROR: rank ", rank, ": ", lost.what(), "!\n");
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
    return Fail("ERROR: rank ", rank, ": Failed to allocate memory!\n");
}

}  // namespace sylvora

#endif  // SYLVORA_OWNCOLUMNS_AGREEMENT_H
