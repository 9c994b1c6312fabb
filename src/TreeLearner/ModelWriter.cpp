// Writing the model file. Its grammar:
//
//   model   = groups " " classes " " columns LF
//             valSmpRt ratio maxLeaf maxDepth numBound valTau lossFunc randomMode modelType LF
//             { mean " " } LF                                          one mean per column
//             { group }
//             [ "[debug]" { LF line } ]                                the debug report, verbatim
//             [ block ]                        see ModelText/BlockWriter.cpp; SaveModelFull has
//             none
//   group   = "idxTreeArray: " number " size: " trees " shrink: " shrink LF { tree }
//   tree    = depth " " nodes LF { node }
//   node    = number " " status " " splitFea " " threshold " " lson " " rson " " output LF
//
// Fields are separated by one blank. Reals have 6 or 17 significant digits. With 6, a model that is
// loaded again scores with rounded thresholds and outputs; with 17, every double is read back bit
// for bit. Numbers are written in the classic locale, whatever the program has set.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <locale>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "../ModelText/Block.h"
#include "../ModelText/TextBuffers.h"
#include "../Output/WholeFile.h"
#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/StreamReading.h"
#include "CallScope.h"
#include "Description.h"
#include "EnsembleView.h"
#include "ModelCheck.h"
#include "RoundedNumber.h"

using sylvora::EnsembleView;
using sylvora::Fail;
using sylvora::TemporaryFile;
using sylvora::TreeView;
using sylvora::engine::PackedNode;

namespace {

// Both kinds of nodes have all fields; a leaf's split and children are what its record holds.
void WriteTree(std::ostream& out, const TreeView& tree) {
    out << tree.Depth() << ' ' << tree.NumNodes() << '\n';
    for (size_t k = 0; k < tree.NumNodes(); ++k) {
        const PackedNode node = tree.Node(k);
        out << k << ' ' << tree.Status(k) << ' ' << node.splitFea << ' ' << node.splitElemFea << ' '
            << node.lson << ' ' << node.rson << ' ' << node.avgPredict << '\n';
    }
}

// Copies the debug report line by line, including the empty line after its last line feed. Skips a
// report that went to a device or a pipe: reading it back may never end.
void CopyDebugReport(std::ostream& out, const std::string& file) {
    out << "[debug]";
    std::error_code unknown;
    if (!std::filesystem::is_regular_file(file, unknown)) return;
    std::ifstream in(file);
    std::string line;
    while (in.good()) {
        sylvora::ReadLine(in, line);
        if (!in.bad()) out << '\n' << line;
    }
}

// The second line. The reader takes the last three fields as words, so they must not be empty.
void WriteParameters(std::ostream& out, const CheckCfgCLS& c) {
    out << c.valSmpRt << ' ' << c.ratio << ' ' << c.maxLeaf << ' ' << c.maxDepth << ' '
        << c.numBound << ' ' << c.valTau << ' ' << c.lossFunc << ' ' << c.randomMode << ' '
        << c.modelType << '\n';
}

// Writes the whole model; errors stay in the state of `out`. A group without a step length gets a
// shrink of 0.
void WriteText(std::ostream& out, const TreeLearner& learner, int digits) {
    const EnsembleView trees(learner);
    out.precision(digits);
    out << trees.NumGroups() << ' ' << learner.numClass << ' ' << learner.dimFea << '\n';
    WriteParameters(out, learner.CfgInfo);
    for (int j = 0; learner.featureMean != nullptr && j < learner.dimFea; ++j) {
        out << learner.featureMean[j] << ' ';
    }
    out << '\n';
    for (size_t g = 0; g < trees.NumGroups(); ++g) {
        const double shrink = g < learner.StepLengthV.size() ? learner.StepLengthV[g] : 0.0;
        out << "idxTreeArray: " << g << " size: " << trees.GroupSize(g) << " shrink: " << shrink
            << '\n';
        for (size_t t = 0; t < trees.GroupSize(g); ++t) WriteTree(out, trees.Tree(g, t));
    }
    if (learner.fDebug) CopyDebugReport(out, learner.fileDebug);
}

// The same, and behind it, unless `description` is null, its block.
void WriteText(std::ostream& out, const TreeLearner& learner, int digits,
               const sylvora::ModelDescription* description) {
    if (description == nullptr) return WriteText(out, learner, digits);
    sylvora::SummingBuffer buffer(*out.rdbuf());
    std::ostream summed(&buffer);
    summed.exceptions(out.exceptions());
    summed.imbue(std::locale::classic());
    WriteText(summed, learner, digits);
    summed.flush();
    if (!buffer.EndsLine()) summed << '\n' << std::flush;
    const sylvora::TextSum model = buffer.Sum();
    buffer.Restart();
    sylvora::WriteBlock(summed, *description, model, sylvora::TreeSizes(learner));
    summed.flush();
    summed << sylvora::BlockEndLine(buffer.Sum()) << std::flush;
    if (!summed.good()) out.setstate(std::ios::badbit);
}

// A private temporary file for a model that must be verified before it is sent to a FIFO or a
// device, from which nothing can be taken back. The file is unlinked as soon as it is open, so no
// failure leaves it behind; it is reached through its descriptor.
class CheckedText {
  public:
    // Returns false, with errno set, if the file cannot be created.
    [[nodiscard]] bool Open() {
        constexpr bool kPrivate = true;
        std::error_code none;
        const std::filesystem::path folder = std::filesystem::temp_directory_path(none);
        if (none || !file.CreateBeside(folder.string() + "/model", kPrivate)) return false;
        file.Unlink();
        name = sylvora::Text("/proc/self/fd/", file.Fd());
        stream.open(name);
        stream.imbue(std::locale::classic());
        return stream.is_open();
    }
    std::ofstream& Stream() { return stream; }
    const std::string& Name() const { return name; }
    // Copies the text to `out`. The pieces are deliberately smaller than the buffer of `out`: what
    // cannot be written stays in the buffer, so that closing the file fails with the reason.
    void SendTo(std::ostream& out) const {
        std::ifstream in(name);
        char piece[512];
        while (in.read(piece, sizeof piece) || in.gcount() > 0) out.write(piece, in.gcount());
    }

  private:
    TemporaryFile file;
    std::string name;
    std::ofstream stream;
};

// Reports the reason in errno. Returns -1.
int RefuseTemporary(const std::string& fileMout) {
    return Fail("ERROR: The text for ", fileMout,
                " cannot be written to a temporary file first: ", std::strerror(errno), "\n");
}

}  // namespace

int TreeLearner::SaveModelFull(std::string fileMout) {
    return SaveModelFull(std::move(fileMout), CfgInfo.digits);
}

int TreeLearner::SaveModelFull(std::string fileMout, int digits) {
    const CallScope scope(*this);
    return sylvora::Guarded([&] {
        constexpr bool kChecked = false;
        return WriteModel(fileMout, digits, kChecked);
    });
}

int sylvora::ModelText::SaveFile(TreeLearner& learner, int digits,
                                 const ModelDescription& description, const std::string& file) {
    const TreeLearner::CallScope scope(learner);
    return Guarded([&] {
        constexpr bool kChecked = false;
        return learner.WriteModel(file, digits, kChecked, &description);
    });
}

int sylvora::ModelText::Save(TreeLearner& learner, int digits, const ModelDescription* description,
                             std::string& text) {
    const TreeLearner::CallScope scope(learner);
    return Guarded([&] {
        if (learner.CheckSaving(digits, description) != 0) return -1;
        std::string whole;
        StringBuffer buffer(whole);
        std::ostream out(&buffer);
        out.exceptions(std::ios::badbit);  // lets lack of memory through
        out.imbue(std::locale::classic());
        WriteText(out, learner, digits, description);
        text = std::move(whole);
        return 0;
    });
}

// Refuses what cannot be saved. `description` may be null. Returns 0, or -1 after a message.
int TreeLearner::CheckSaving(int digits, const sylvora::ModelDescription* description) const {
    if (fLoadFailed) {
        return Fail("ERROR: The model was not loaded in full, nothing is saved!\n");
    }
    if (sylvora::CheckDigits(digits) != 0 || CheckModelWidth() != 0) return -1;
    const std::string fault = description ? sylvora::FindMisfit(*this, *description) : "";
    return fault.empty() ? 0 : Fail("ERROR: The description ", fault, "; nothing is saved!\n");
}

// Writes the model, and the block of `description` unless it is null, to `fileMout`, which is
// replaced only after everything was written and, with
// `fCheck`, read back and compared. Returns 0, or -1 after a message.
int TreeLearner::WriteModel(const std::string& fileMout, int digits, bool fCheck,
                            const sylvora::ModelDescription* description) {
    if (CheckSaving(digits, description) != 0) return -1;
    sylvora::WholeFile file(fileMout, [this] { return AskUser() != 0; });
    if (!file.IsOpen()) return Fail("ERROR: Can not open file!\n\n", file.ErrorMessage());
    CheckedText checked;
    // A regular file can be verified in its temporary place. A FIFO or a device is written to
    // directly, so its text is verified in a file of its own and sent afterwards.
    const bool fSendLater = fCheck && file.IsDirect();
    if (fSendLater && !checked.Open()) return RefuseTemporary(fileMout);
    std::ofstream& out = fSendLater ? checked.Stream() : file.Stream();
    WriteText(out, *this, digits, description);
    out.flush();
    if (fSendLater && !out.good()) return RefuseTemporary(fileMout);
    const std::string& name = fSendLater ? checked.Name() : file.Name();
    if (fCheck && out.good() && sylvora::CheckModelFile(name, *this, digits) != 0) {
        return Fail("ERROR: ", fileMout,
                    ": the model could not be verified, nothing is replaced\n");
    }
    // Reading back may have taken long; this is the last moment at which the user can stop the run.
    const int wish = fCheck ? AskUser() : 0;
    if (wish != 0 && wish != kStopAndKeep) {
        fStopped = true;
        if (fUserThrew) return -1;  // which was reported
        return Fail("Notice: Training was stopped before its end, no model is written!\n");
    }
    if (fSendLater) checked.SendTo(file.Stream());
    if (!file.Commit()) return Fail(file.ErrorMessage());
    if (fDebug && CfgInfo.fPrint) sylvora::Print("Save model complete.\n");
    return 0;
}
