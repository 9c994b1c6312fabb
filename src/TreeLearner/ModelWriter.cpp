// The model file, written.
//
//   model   = groups " " classes " " columns LF
//             valSmpRt ratio maxLeaf maxDepth numBound valTau lossFunc randomMode modelType LF
//             { mean " " } LF                                          one mean per column
//             { group }
//             [ "[debug]" { LF line } ]                                the debug report, verbatim
//   group   = "idxTreeArray: " number " size: " trees " shrink: " shrink LF { tree }
//   tree    = depth " " nodes LF { node }
//   node    = number " " status " " splitFea " " threshold " " lson " " rson " " output LF
//
// Fields are separated by one blank. Reals have six significant digits, so a model that is loaded
// again scores with rounded thresholds and outputs.
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "../Output/WholeFile.h"
#include "../TreeLearner.h"
#include "../god/Report.h"
#include "../god/StreamReading.h"

namespace {

void WriteTree(std::ostream& out, const TreeCR& tree) {
    out << tree.depth << ' ' << tree.NodeV.size() << '\n';
    for (size_t k = 0; k < tree.NodeV.size(); ++k) {
        const NodeCR& node = *tree.NodeV[k];
        out << k << ' ' << node.status << ' ' << node.splitFea << ' ' << node.splitElemFea << ' '
            << node.lson << ' ' << node.rson << ' ' << node.avgPredict << '\n';
    }
}

// Reads until the end, so the empty line behind the last line feed is copied too. A device or a
// pipe that the report went to may have no end.
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

void WriteParameters(std::ostream& out, const CheckCfgCLS& c) {
    out << c.valSmpRt << ' ' << c.ratio << ' ' << c.maxLeaf << ' ' << c.maxDepth << ' '
        << c.numBound << ' ' << c.valTau << ' ' << c.lossFunc << ' ' << c.randomMode << ' '
        << c.modelType << '\n';
}

}  // namespace

int TreeLearner::SaveModelFull(std::string fileMout) {
    return sylvora::Guarded([&] {
        sylvora::WholeFile file(fileMout, [this] { return IsGivenUp(); });
        if (!file.IsOpen()) return sylvora::Fail("ERROR: Can not open file!\n\n", file.Complaint());
        std::ofstream& out = file.Stream();
        out << TreeVV.size() << ' ' << numClass << ' ' << dimFea << '\n';
        WriteParameters(out, CfgInfo);
        for (int j = 0; featureMean != nullptr && j < dimFea; ++j) out << featureMean[j] << ' ';
        out << '\n';
        for (size_t g = 0; g < TreeVV.size(); ++g) {
            const double shrink = g < StepLengthV.size() ? StepLengthV[g] : 0.0;
            out << "idxTreeArray: " << g << " size: " << TreeVV[g].size() << " shrink: " << shrink
                << '\n';
            for (const TreeCR* tree : TreeVV[g]) WriteTree(out, *tree);
        }
        if (fDebug) CopyDebugReport(out, fileDebug);
        if (!file.Commit()) return sylvora::Fail(file.Complaint());
        if (fDebug && CfgInfo.fPrint) sylvora::Print("Save model complete.\n");
        return 0;
    });
}
