// Models of the C interface.
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "../TreeLearner/EnsembleView.h"
#include "../TreeLearner/ModelParts.h"
#include "Call.h"
#include "Handles.h"

using sylvora::EnsembleView;
using sylvora::Fail;
using sylvora::ModelText;
using sylvora::Text;
using sylvora::TreeView;
using sylvora::c::RefuseNull;
using sylvora::c::Run;

namespace sylvora::c {

std::unique_ptr<sylvora_model> FreshModel() {
    auto model = std::make_unique<sylvora_model>();
    model->learner = std::make_unique<TreeLearner>();
    model->learner->setPackedTrees(true);
    return model;
}

void Derive(sylvora_model& model) {
    const EnsembleView trees(*model.learner);
    size_t numNodes = 0;
    model.placeV.clear();
    model.placeV.reserve(trees.NumTrees());
    for (size_t g = 0; g < trees.NumGroups(); ++g) {
        for (size_t t = 0; t < trees.GroupSize(g); ++t) {
            model.placeV.push_back({g, t, numNodes});
            numNodes += trees.Tree(g, t).NumNodes();
        }
    }
    model.settingV.clear();
    for (const auto& [parameter, value] : model.description.settingV) {
        model.settingV.push_back(Text(parameter, "=", value));
    }
    model.bestRound = Text(model.description.bestRound);
}

}  // namespace sylvora::c

namespace {

// Loads with load(learner, description) and hands the model over.
template <typename Load>
int Loaded(sylvora_model** out, const Load& load) {
    if (out == nullptr) return RefuseNull("out");
    std::unique_ptr<sylvora_model> model = sylvora::c::FreshModel();
    if (load(*model->learner, model->description) != 0) return -1;
    if (model->learner->getGroupNum() == 0) {
        return Fail("ERROR: The text is no model: it has no trees\n");
    }
    sylvora::ModelParts::DeriveDepths(*model->learner);
    sylvora::c::Derive(*model);
    *out = model.release();
    return 0;
}

sylvora_node NodeOf(const sylvora::engine::PackedNode& node, int cover) {
    if (node.IsLeaf()) return {node.splitElemFea, node.avgPredict, -1, -1, -1, cover};
    return {node.splitElemFea, node.avgPredict, node.splitFea, node.lson, node.rson, cover};
}

// Sets the best round to the one text, if there is one, otherwise to none.
int SetBestRound(sylvora_model& model, const std::vector<std::string>& textV) {
    int round = 0;
    for (const std::string& text : textV) {
        const char* const end = text.data() + text.size();
        const std::from_chars_result read = std::from_chars(text.data(), end, round);
        if (read.ec != std::errc() || read.ptr != end || round < 1) {
            return Fail("ERROR: The best round \"", text, "\" is no number from 1\n");
        }
    }
    model.description.bestRound = round;
    model.bestRound = Text(round);
    return 0;
}

// A list of texts of a description, by key; null: the key has none.
std::vector<std::string>* ListOf(sylvora::ModelDescription& description, const std::string& key) {
    return key == "column" ? &description.columnV : key == "class" ? &description.classV : nullptr;
}

}  // namespace

int sylvora_model_load(const char* file, int described, sylvora_model** out) {
    return Run([&] {
        if (file == nullptr) return RefuseNull("The file name");
        return Loaded(out, [&](TreeLearner& learner, sylvora::ModelDescription& description) {
            return described != 0 ? ModelText::LoadFile(file, learner, description)
                                  : learner.LoadModelFull(file);
        });
    });
}

int sylvora_model_parse(const char* text, size_t size, int described, sylvora_model** out) {
    return Run([&] {
        if (text == nullptr) return RefuseNull("The text");
        return Loaded(out, [&](TreeLearner& learner, sylvora::ModelDescription& description) {
            return ModelText::Load(text, size, learner, described != 0 ? &description : nullptr);
        });
    });
}

int sylvora_model_save(const sylvora_model* model, const char* file, int digits, int described) {
    return Run([&] {
        if (model == nullptr) return RefuseNull("The model");
        if (file == nullptr) return RefuseNull("The file name");
        return described != 0
                   ? ModelText::SaveFile(*model->learner, digits, model->description, file)
                   : model->learner->SaveModelFull(file, digits);
    });
}

int sylvora_model_text(const sylvora_model* model, int digits, int described, char** text,
                       size_t* size) {
    return Run([&] {
        if (model == nullptr) return RefuseNull("The model");
        if (text == nullptr || size == nullptr) return RefuseNull("text or size");
        std::string written;
        const auto* const description = described != 0 ? &model->description : nullptr;
        if (ModelText::Save(*model->learner, digits, description, written) != 0) return -1;
        char* const copy = static_cast<char*>(std::malloc(written.size() + 1));
        if (copy == nullptr) throw std::bad_alloc();
        std::memcpy(copy, written.c_str(), written.size() + 1);
        *text = copy;
        *size = written.size();
        return 0;
    });
}

int sylvora_model_cut(sylvora_model* model, int64_t num_groups) {
    return Run([&] {
        if (model == nullptr) return RefuseNull("The model");
        if (sylvora::ModelParts::Cut(*model->learner, num_groups) != 0) return -1;
        model->placeV.resize(static_cast<size_t>(model->learner->getTreeNum()));
        std::vector<int>& coverV = model->description.coverV;
        if (coverV.empty()) return 0;
        const sylvora_tree_place& last = model->placeV.back();
        const EnsembleView trees(*model->learner);
        coverV.resize(last.firstCover + trees.Tree(last.group, last.tree).NumNodes());
        return 0;
    });
}

void sylvora_text_free(char* text) {
    std::free(text);
}

void sylvora_model_free(sylvora_model* model) {
    const sylvora::c::Call call;  // a learner with fPrint tells of its end
    delete model;
}

int sylvora_model_facts_of(const sylvora_model* model, sylvora_model_facts* facts) {
    return Run([&] {
        if (model == nullptr) return RefuseNull("The model");
        if (facts == nullptr) return RefuseNull("facts");
        if (facts->size != sizeof *facts) {
            return Fail("ERROR: facts has a size of ", facts->size, ", not ", sizeof *facts, "\n");
        }
        const TreeLearner& learner = *model->learner;
        facts->num_columns = learner.getFeatureDim();
        facts->num_classes = learner.getClassNum();
        facts->num_groups = learner.getGroupNum();
        facts->num_trees = learner.getTreeNum();
        facts->type = learner.CfgInfo.modelType.c_str();
        facts->loss = learner.CfgInfo.lossFunc.c_str();
        return 0;
    });
}

int sylvora_model_tree(const sylvora_model* model, int64_t tree, sylvora_node* nodes,
                       int64_t capacity, int64_t* num_nodes, int64_t* group, double* shrink) {
    return Run([&] {
        if (model == nullptr) return RefuseNull("The model");
        if (num_nodes == nullptr || group == nullptr || shrink == nullptr ||
            (nodes == nullptr && capacity > 0)) {
            return RefuseNull("nodes, num_nodes, group or shrink");
        }
        const std::vector<sylvora_tree_place>& placeV = model->placeV;
        if (tree < 0 || static_cast<size_t>(tree) >= placeV.size()) {
            return Fail("ERROR: There is no tree ", tree, ": the model has ", placeV.size(), "\n");
        }
        const sylvora_tree_place& place = placeV[static_cast<size_t>(tree)];
        const TreeView view = EnsembleView(*model->learner).Tree(place.group, place.tree);
        *num_nodes = static_cast<int64_t>(view.NumNodes());
        *group = static_cast<int64_t>(place.group);
        *shrink = model->learner->StepLengthV[place.group];
        const std::vector<int>& coverV = model->description.coverV;
        for (size_t k = 0; k < view.NumNodes() && static_cast<int64_t>(k) < capacity; ++k) {
            nodes[k] = NodeOf(view.Node(k), coverV.empty() ? -1 : coverV[place.firstCover + k]);
        }
        return 0;
    });
}

const char* sylvora_model_describe(const sylvora_model* model, const char* key, int64_t i) {
    if (model == nullptr || key == nullptr || i < 0) return nullptr;
    const sylvora::ModelDescription& description = model->description;
    const size_t at = static_cast<size_t>(i);
    const std::string_view name = key;
    const auto inList = [at](const std::vector<std::string>& textV) {
        return at < textV.size() ? textV[at].c_str() : nullptr;
    };
    if (name == "column") return inList(description.columnV);
    if (name == "class") return inList(description.classV);
    if (name == "setting") return inList(model->settingV);
    if (at > 0) return nullptr;
    if (name == "bestRound" && description.bestRound > 0) return model->bestRound.c_str();
    if (name == "link" && !description.link.empty()) return description.link.c_str();
    if (name == "missing" && !description.missing.empty()) return description.missing.c_str();
    return nullptr;
}

int sylvora_model_set_description(sylvora_model* model, const char* key, const char* const* texts,
                                  int64_t num_texts) {
    return Run([&] {
        if (model == nullptr) return RefuseNull("The model");
        if (key == nullptr || (texts == nullptr && num_texts > 0))
            return RefuseNull("key or texts");
        if (num_texts < 0) return Fail("ERROR: There are ", num_texts, " texts\n");
        std::vector<std::string> textV;
        for (int64_t i = 0; i < num_texts; ++i) {
            if (texts[i] == nullptr) return RefuseNull("A text");
            textV.emplace_back(texts[i]);
        }
        sylvora::ModelDescription& description = model->description;
        const std::string name = key;
        const int64_t numColumns = model->learner->getFeatureDim();
        const int64_t numClasses = model->learner->getClassNum();
        if (name == "column" && num_texts != 0 && num_texts != numColumns) {
            return Fail("ERROR: There are ", num_texts, " names for ", numColumns, " columns\n");
        }
        if (name == "class" && num_texts != 0 && numClasses > 0 && num_texts != numClasses) {
            return Fail("ERROR: There are ", num_texts, " names for ", numClasses, " classes\n");
        }
        if (std::vector<std::string>* const list = ListOf(description, name)) {
            *list = std::move(textV);
            return 0;
        }
        if ((name == "link" || name == "missing") && num_texts <= 1) {
            (name == "link" ? description.link : description.missing) =
                textV.empty() ? std::string() : textV[0];
            return 0;
        }
        if (name == "bestRound" && num_texts <= 1) return SetBestRound(*model, textV);
        if (name != "setting") {
            return Fail("ERROR: A description takes no ", num_texts, " texts of the key \"", name,
                        "\"\n");
        }
        std::vector<std::pair<std::string, std::string>> settingV;
        for (const std::string& text : textV) {
            const size_t equals = text.find('=');
            if (equals == std::string::npos || equals == 0) {
                return Fail("ERROR: The setting \"", text, "\" is not parameter=value\n");
            }
            settingV.emplace_back(text.substr(0, equals), text.substr(equals + 1));
        }
        description.settingV.swap(settingV);
        model->settingV.swap(textV);
        return 0;
    });
}
