# The R side of tools/unitroot_reference.py.
#
#   Rscript tools/unitroot_reference.R datasets OUT.csv
#       writes Nile, lynx, log(AirPassengers) and co2 from R's datasets package
#       (case, index, value)
#   Rscript tools/unitroot_reference.R pp SERIES.csv OUT.csv CASE...
#       Phillips-Perron statistics of each named case of SERIES.csv from urca's ur.pp
#       (model "constant" and "trend", use.lag 1 to 8) and tseries' pp.test (trend
#       regression, its short and long truncation lags), each with the figures that
#       turn it into the finite-sample convention (see docs/ACCURACY.md):
#         n, alpha, t       the test regression's rho estimate and (alpha - 1) / se,
#                           from R's lm
#         s2                the residual sum of squares over n
#         rss_lag           the residual sum of squares of y[t-1] regressed on the
#                           deterministic terms (centred sum of squares for "constant")
#         zalpha, ztau      the peer's statistics as it reports them
#         omega2            the long-run variance implied by the peer's Z(alpha)
#         zalpha_conv, ztau_conv
#                           the peer's corrections rescaled to n^2 / rss_lag
suppressMessages({
  library(urca)
  library(tseries)
})

args <- commandArgs(trailingOnly = TRUE)
num <- function(v) sprintf("%.17g", v)

if (args[1] == "datasets") {
  sets <- list(nile = as.vector(Nile), lynx = as.vector(lynx), logair = log(as.vector(AirPassengers)),
               co2 = as.vector(co2))
  rows <- do.call(rbind, lapply(names(sets), function(name) {
    data.frame(case = name, index = seq_along(sets[[name]]) - 1, value = num(sets[[name]]))
  }))
  write.csv(rows, args[2], row.names = FALSE, quote = FALSE)
  quit(status = 0)
}

series <- read.csv(args[2], stringsAsFactors = FALSE)
out <- list()

# Sums that a conversion needs, from lm on the peer's own regression rows.
regression <- function(y, yl1, model) {
  n <- length(y)
  trend <- (1:n) - n / 2
  fit <- if (model == "trend") summary(lm(y ~ yl1 + trend)) else summary(lm(y ~ yl1))
  aux <- if (model == "trend") residuals(lm(yl1 ~ trend)) else yl1 - mean(yl1)
  list(n = n, alpha = coef(fit)[2, 1], t = (coef(fit)[2, 1] - 1) / coef(fit)[2, 2],
       s2 = sum(residuals(fit)^2) / n, rss_lag = sum(aux^2))
}

add <- function(case, peer, model, lag, r, zalpha, ztau, lambda_spec) {
  omega2 <- r$s2 + lambda_spec
  corr <- 0.5 * lambda_spec * r$n^2 / r$rss_lag
  out[[length(out) + 1]] <<- data.frame(
    case = case, peer = peer, model = model, lag = lag, n = r$n, alpha = num(r$alpha), t = num(r$t),
    s2 = num(r$s2), rss_lag = num(r$rss_lag), zalpha = num(zalpha), ztau = num(ztau), omega2 = num(omega2),
    zalpha_conv = num(r$n * (r$alpha - 1) - corr),
    ztau_conv = num((sqrt(r$s2) * r$t - 0.5 * lambda_spec * r$n / sqrt(r$rss_lag)) / sqrt(omega2)))
}

agree <- function(a, b) {
  if (abs(a - b) > 1e-9 * max(1, abs(a))) stop(sprintf("inconsistent conversion: %.17g against %.17g", a, b))
}

for (case in args[4:length(args)]) {
  x <- series$value[series$case == case]
  n <- length(x) - 1
  y <- x[-1]
  yl1 <- x[-(n + 1)]
  for (model in c("constant", "trend")) {
    r <- regression(y, yl1, model)
    # urca centres the current values y[t] where the regressor is y[t-1]; its
    # denominator D is myybar (constant) or M (trend) of ur.pp.
    trend <- (1:n) - n / 2
    d <- if (model == "trend") (1 - n^-2) * sum(residuals(lm(y ~ trend))^2) / n^2 else sum((y - mean(y))^2) / n^2
    for (lag in 1:8) {
      za <- ur.pp(x, type = "Z-alpha", model = model, use.lag = lag)@teststat
      zt <- ur.pp(x, type = "Z-tau", model = model, use.lag = lag)@teststat
      lambda_spec <- 2 * d * (r$n * (r$alpha - 1) - za)
      # The same long-run variance must give the peer's Z(tau) by its own formula.
      sig <- r$s2 + lambda_spec
      agree(zt, sqrt(r$s2 / sig) * r$t - 0.5 * lambda_spec / (sqrt(sig) * sqrt(d)))
      add(case, "urca", model, lag, r, za, zt, lambda_spec)
    }
  }
  r <- regression(y, yl1, "trend")
  for (short in c(TRUE, FALSE)) {
    za <- suppressWarnings(pp.test(x, type = "Z(alpha)", lshort = short))
    zt <- suppressWarnings(pp.test(x, type = "Z(t_alpha)", lshort = short))
    # pp.test's Z(alpha) correction is n^6 / (24 Dx) times lambda, Dx the determinant
    # of the moment matrix of (1, t, y[t-1]).
    dx <- det(crossprod(cbind(1, 1:n, yl1)))
    lambda_spec <- (r$n * (r$alpha - 1) - za$statistic) * 24 * dx / n^6
    sig <- r$s2 + lambda_spec
    agree(zt$statistic, sqrt(r$s2 / sig) * r$t - n^3 / (4 * sqrt(3) * sqrt(dx) * sqrt(sig)) * lambda_spec)
    add(case, "tseries", "trend", za$parameter, r, za$statistic, zt$statistic, lambda_spec)
  }
}
write.csv(do.call(rbind, out), args[3], row.names = FALSE, quote = FALSE)
