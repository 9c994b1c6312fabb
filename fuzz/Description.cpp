// The text behind a model: with any text there the model loads as before, and a block with any
// content is refused with a line, or read, written again and read with the same result.
#include "../tests/InMemory.h"
#include "../tests/damage/DescribedModel.h"
#include "Fuzz.h"

using namespace sylvora;

namespace {

// Loads with the description. Returns the status.
int Load(const std::string& text, TreeLearner& learner, ModelDescription& description) {
    return ModelText::Load(text.data(), text.size(), learner, &description);
}

void TryContent(const std::string& lines, fuzz::Counter& counter, tests::Messages& messages) {
    TreeLearner learner;
    ModelDescription description;
    const std::string& model = tests::kSmallModel;
    const int status = Load(model + tests::BlockOf(model, lines), learner, description);
    const std::string said = messages.Take();
    counter.Add(status, said);
    fuzz::Demand(said.find('\n') == said.size() - 1 || status == 0, "one line: " + said);
    if (status != 0) return;
    std::string text;
    fuzz::Demand(ModelText::Save(learner, 6, &description, text) == 0, "it is saved");
    TreeLearner again;
    ModelDescription found;
    fuzz::Demand(Load(text, again, found) == 0 && found == description, "it is the same: " + text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::Counter counter;
    static const std::string saved = tests::LoadAndSave(tests::kSmallModel);
    tests::Messages messages;
    const std::string input = fuzz::TextOf(data, size);
    TryContent(input, counter, messages);
    TryContent(input + "\n", counter, messages);
    const std::string behind = tests::kSmallModel + input;
    fuzz::Demand(tests::LoadAndSave(behind) == saved, "the model loads as before");
    TreeLearner learner;
    ModelDescription description;
    const int status = Load(behind, learner, description);
    counter.Add(status, messages.Take());
    return 0;
}
