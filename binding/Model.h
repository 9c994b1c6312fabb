// The handle behind an integer that the Python module gives out: one loaded ensemble and the
// buffers of its scoring calls.
#ifndef SYLVORA_BINDING_MODEL_H
#define SYLVORA_BINDING_MODEL_H

class TreeLearner;

// Owns everything it points to. Movable, which leaves the source empty; not copyable. Not locked:
// every caller holds the interpreter's global lock.
class Model {
  public:
    TreeLearner* learner = nullptr;
    double* featureBuf = nullptr;     // dimFea values: the row being scored; see FeatureLoan
    double* treeResultBuf = nullptr;  // values of the last scoring, at least treeNum entries
    int treeNum = 0;                  // trees in all groups

    Model() = default;
    ~Model();
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;
    Model(Model&& other) noexcept;

    // Frees what it owns and leaves it empty.
    void Clear();

    // Trees in all groups of the learner.
    int CalcTreeNum();

    // Loads the model file; once, on an empty model. Returns 1, or 0 with the Python exception set;
    // the model is then only good for destruction. Throws std::bad_alloc.
    [[nodiscard]] int Init(const char* path);
};

// The feature buffer of a handle, lent to one scoring call. Converting an item of the caller's list
// can run any Python code, which may score another row with the same handle or let another thread
// do so. Such a call finds the buffer lent out and allocates one of its own.
class FeatureLoan {
  public:
    double* featureV;

    // Throws std::bad_alloc, though only when the handle's own buffer is lent out.
    explicit FeatureLoan(Model& lender);
    ~FeatureLoan();
    FeatureLoan(const FeatureLoan&) = delete;
    FeatureLoan& operator=(const FeatureLoan&) = delete;

  private:
    Model& model;
};

#endif  // SYLVORA_BINDING_MODEL_H
