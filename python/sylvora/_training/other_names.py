"""What to do about names of parameters that `settings_of` does not know."""

from __future__ import annotations

import difflib
from collections.abc import Iterable

_DATA = "give the data as X and y"
_ARGUMENT = "it is an argument of its own"
# Names that mean something else here than a parameter of the training.
_ELSEWHERE = {
    "fileTrain": _DATA,
    "fileTest": "score with Model.predict",
    "fileDev": "give the data as eval_set",
    "labelTran": "map the labels y",
    "fileModel": "use Model.save or Model.load",
    "filePred": "use Model.predict",
    "mode": "use train, Model.predict or Model.feature_importance",
    "digits": "give digits to Model.save",
    "absent": "an absent entry of a sparse matrix is 0",
    "evalEvery": "use the callback LogEvaluation",
    "objective": f"{_ARGUMENT}; for a loss of the library use loss",
    **dict.fromkeys(
        "eval_metric eval_set base_score callbacks missing verbose sample_weight group qid"
        " feature_names".split(),
        _ARGUMENT,
    ),
}

# By ours, the names of other libraries for the same.
_SAME = {
    "n_estimators": "num_boost_round num_iterations num_iteration num_trees num_tree num_rounds"
    " num_round nrounds n_trees n_iter max_iter iterations",
    "learning_rate": "eta shrinkage shrinkage_rate",
    "max_depth": "depth",
    "max_leaf_nodes": "max_leaves num_leaves",
    "subsample": "bagging_fraction max_samples",
    "max_features": "colsample_bynode feature_fraction_bynode",
    "loss": "criterion loss_function",
    "delta": "huber_slope",
    "quantile": "quantile_alpha",
    "model": "boosting boosting_type booster",
    "random_state": "seed random_seed data_random_seed bagging_seed feature_fraction_seed",
    "n_jobs": "nthread num_threads num_thread thread_count",
    "early_stopping_rounds": "early_stopping_round n_iter_no_change od_wait",
}
# By what to say of them, the names of other libraries that have no equal here.
_NONE = {
    "there is no regularisation; smaller trees, a smaller learning_rate and sampling take its "
    "place": "reg_lambda reg_alpha lambda lambda_l1 lambda_l2 l2_regularization l2_leaf_reg gamma"
    " min_split_loss min_split_gain min_gain_to_split min_impurity_decrease ccp_alpha"
    " max_delta_step path_smooth",
    'of the loss "quantile" it is quantile; there is no regularisation': "alpha",
    "columns are drawn for each node, not for each tree: use max_features": "colsample_bytree"
    " colsample_bylevel feature_fraction rsm",
    "leaves have no least size; the nearest is min_samples_split, the rows that a node needs to be "
    "split": "min_child_weight min_child_samples min_sum_hessian_in_leaf min_data_in_leaf"
    " min_samples_leaf min_weight_fraction_leaf",
    "every value is tried as a split, there are no bins": "max_bin max_bins border_count"
    " tree_method subsample_for_bin",
    "trees grow level by level": "grow_policy",
    "rows are drawn for every tree": "bagging_freq subsample_freq",
    "rows are drawn without replacement": "bootstrap bootstrap_type sampling_method",
    "give sample_weight, or class_weight to fit of SylvoraClassifier": "scale_pos_weight"
    " class_weight class_weights auto_class_weights is_unbalance",
    "boosting has two classes, a forest takes their number from y; SylvoraClassifier is for any "
    "number": "num_class num_classes",
    "there are no constraints": "monotone_constraints monotonic_cst interaction_constraints"
    " interaction_cst",
    "encode categories as numbers, for example with sklearn.preprocessing.OrdinalEncoder":
    "categorical_feature categorical_features cat_features enable_categorical",
    "give verbose, an argument of its own": "verbosity silent verbose_eval logging_level",
    "give eval_metric, an argument of its own": "metric scoring",
    "give checkpoint and checkpoint_every to train, as arguments of their own":
    "checkpoint checkpoint_every checkpointEvery",
    "set rows apart and give them as eval_set, with early_stopping_rounds": "early_stopping"
    " validation_fraction",
    "use the callback EarlyStopping with min_delta": "tol",
    "training goes on from no other model": "warm_start init_model",
    "there is no dropout": "drop_rate rate_drop skip_drop max_drop",
    "training uses processors only; n_jobs says how many": "device device_type task_type gpu_id",
}
_ADVICE = {
    **{name: f"did you mean {ours}?" for ours, names in _SAME.items() for name in names.split()},
    **{name: text for text, names in _NONE.items() for name in names.split()},
}


def unknown(name: str, known: Iterable[str]) -> ValueError:
    """The error for a name that is not among the known ones."""
    if name in _ELSEWHERE:
        return ValueError(f"{name} is not a parameter here: {_ELSEWHERE[name]}")
    known = list(known)
    # Only names that are as near as a slip of the fingers: others suggest what was not meant.
    like = difflib.get_close_matches(name, known, n=1, cutoff=0.75)
    by_letters = f"did you mean {like[0]}?" if like else f"known are {', '.join(known)}"
    return ValueError(f"There is no parameter {name!r}: {_ADVICE.get(name, by_letters)}")
