# ranger's side of the forests: ranger_peer.R train data=RAW trees= leaf= columns= rows= threads=
# The raw file is described in bench/driver/RawData.h, the figures in bench/driver/Jobs.h.
suppressMessages(library(ranger))

settings <- function() {
  arguments <- commandArgs(trailingOnly = TRUE)[-1]
  keys <- sub("=.*", "", arguments)
  structure(as.list(sub("^[^=]*=", "", arguments)), names = keys)
}

memory_bytes <- function(field) {
  line <- grep(paste0("^", field, ":"), readLines("/proc/self/status"), value = TRUE)
  1024 * as.numeric(gsub("[^0-9]", "", line))
}

say <- function(key, value) cat(sprintf("bench: %s %.9g\n", key, value))

read_raw <- function(path) {
  file <- file(path, "rb")
  on.exit(close(file))
  header <- readBin(file, "integer", 4)
  y <- readBin(file, "numeric", header[1], size = 4)
  x <- matrix(readBin(file, "numeric", header[1] * header[2], size = 4),
              nrow = header[1], byrow = TRUE)
  colnames(x) <- paste0("x", seq_len(header[2]))
  list(x = x, y = if (header[3] > 0) factor(y) else y)
}

job <- settings()
number <- function(key) as.numeric(job[[key]])
before <- memory_bytes("VmRSS")
data <- read_raw(job$data)
start <- proc.time()
forest <- ranger(x = data$x, y = data$y, num.trees = number("trees"),
                 mtry = ceiling(number("columns") * ncol(data$x)),
                 replace = FALSE, sample.fraction = number("rows"),
                 min.node.size = number("leaf"), oob.error = FALSE,
                 num.threads = number("threads"), seed = 1, verbose = FALSE)
taken <- proc.time() - start
say("fit_s", taken[["elapsed"]])
say("fit_cpu", taken[["user.self"]] + taken[["sys.self"]])
say("rounds", number("trees"))
say("peak_bytes", memory_bytes("VmHWM") - before)
say("cells", length(data$x))
sample <- seq_len(min(2000, nrow(data$x)))
predicted <- predict(forest, data$x[sample, ], num.threads = number("threads"))$predictions
label <- data$y[sample]
say("misfit", if (is.factor(label)) mean(predicted != label) else sqrt(mean((predicted - label)^2)))
