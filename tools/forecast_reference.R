# Reference values for `fmsd forecast`: the same regressions fitted by R's lm() and
# forecast by predict(interval = "prediction"), written under tests/data/forecast/.
#   Rscript tools/forecast_reference.R [DIR]
# Each case writes its input series (NAME.csv), the expected rows of the output
# (NAME_expected.csv), the estimates (NAME_estimates.csv) and a few statistics
# (NAME_stats.csv).  Values are printed with 17 significant digits.
args <- commandArgs(trailingOnly = TRUE)
dir <- if (length(args) > 0) args[1] else "tests/data/forecast"
dir.create(dir, showWarnings = FALSE, recursive = TRUE)

num <- function(x) ifelse(is.na(x), "", sprintf("%.17g", x))
write_table <- function(frame, file) {
  out <- as.data.frame(lapply(frame, function(col) if (is.numeric(col)) num(col) else as.character(col)))
  write.table(out, file.path(dir, file), sep = ",", quote = FALSE, row.names = FALSE, na = "")
}
months <- function(start, n) seq(as.Date(start), by = "month", length.out = n)
# Seasonal dummies with December as the base season, in the order January to November.
month_factor <- function(dates) factor(as.integer(format(dates, "%m")), levels = c(12, 1:11))

estimates <- function(fit, names) {
  s <- summary(fit)$coefficients
  cf <- coef(fit)
  out <- data.frame(name = names, estimate = NA_real_, stderr = NA_real_, tvalue = NA_real_, probt = NA_real_)
  for (i in seq_along(cf)) {
    if (is.na(cf[i])) next
    k <- names(cf)[i]
    out[i, 2:5] <- s[k, ]
  }
  out
}

# ---- AirPassengers: log scale, linear trend, seasonal dummies, a step in 1955,
# the last 12 months held out, 24 months of lead, 90% limits, mean forecasts ----
y <- as.numeric(AirPassengers)
n <- length(y); lead <- 24; held <- 12; level <- 0.90
dates <- months("1949-01-01", n + lead)
d <- data.frame(ly = c(log(y), rep(NA, lead)), t = seq_len(n + lead), month = month_factor(dates),
                step = as.numeric(dates >= as.Date("1955-01-01")))
fit <- lm(ly ~ t + month + step, data = d[seq_len(n - held), ])
pr <- predict(fit, newdata = d, interval = "prediction", level = level, se.fit = TRUE)
sigma <- summary(fit)$sigma
q <- sqrt(pr$se.fit^2 + sigma^2)           # the prediction standard error on the log scale
p <- pr$fit[, "fit"]
mean <- exp(p + q^2 / 2)
fitted_rows <- seq_len(n + lead) <= n - held
write_table(data.frame(date = format(dates[seq_len(n)]), passengers = y), "air.csv")
write_table(data.frame(date = format(dates), predict = mean, std = mean * sqrt(exp(q^2) - 1),
                       lower = exp(pr$fit[, "lwr"]), upper = exp(pr$fit[, "upr"]),
                       residual = ifelse(fitted_rows, d$ly - p, NA), resstd = ifelse(fitted_rows, q, NA),
                       median = exp(p)),
            "air_expected.csv")
write_table(estimates(fit, c("INTERCEPT", "TREND LINEAR", paste("SEASON", 1:11), "STEP 1955-01-01")),
            "air_estimates.csv")
holdout <- (n - held + 1):n
write_table(data.frame(name = c("DF", "RMSE", "TQUANTILE", "SSE"),
                       value = c(fit$df.residual, sigma, qt(0.5 + level / 2, fit$df.residual),
                                 sum((y[holdout] - mean[holdout])^2))),
            "air_stats.csv")

# ---- Seatbelts: drivers killed less vans killed (an adjustment), quadratic trend,
# seasonal dummies, a step at the seat-belt law and a point in January 1974, petrol
# price and distance driven as regressors, with a second distance column that is
# twice the first (aliased).  The fit starts in 1970; 1984 is given with its
# regressors but no series, to be forecast; 99% limits ----
sb <- as.data.frame(Seatbelts)
n <- nrow(sb)
dates <- months("1969-01-01", n)
killed <- sb$DriversKilled
killed[dates >= as.Date("1984-01-01")] <- NA
d <- data.frame(y = killed - sb$VanKilled, t = seq_len(n), month = month_factor(dates),
                step = as.numeric(dates >= as.Date("1983-02-01")), point = as.numeric(dates == as.Date("1974-01-01")),
                petrol = sb$PetrolPrice, kms = sb$kms, kms2 = 2 * sb$kms)
level <- 0.99
rows <- dates >= as.Date("1970-01-01")
fit <- lm(y ~ t + I(t^2) + month + step + point + petrol + kms + kms2, data = d[rows, ])
pr <- predict(fit, newdata = d, interval = "prediction", level = level, se.fit = TRUE)
sigma <- summary(fit)$sigma
std <- sqrt(pr$se.fit^2 + sigma^2)
write_table(data.frame(date = format(dates), killed = killed, van = sb$VanKilled, petrol = sb$PetrolPrice,
                       kms = sb$kms, kms2 = 2 * sb$kms),
            "seatbelts.csv")
write_table(data.frame(date = format(dates), predict = pr$fit[, "fit"] + sb$VanKilled, std = std,
                       lower = pr$fit[, "lwr"] + sb$VanKilled, upper = pr$fit[, "upr"] + sb$VanKilled)[rows, ],
            "seatbelts_expected.csv")
write_table(estimates(fit, c("INTERCEPT", "TREND LINEAR", "TREND QUAD", paste("SEASON", 1:11), "STEP 1983-02-01",
                             "POINT 1974-01-01", "petrol", "kms", "kms2")),
            "seatbelts_estimates.csv")
evaluate <- dates >= as.Date("1982-01-01") & dates <= as.Date("1983-12-01")
write_table(data.frame(name = c("DF", "RMSE", "TQUANTILE", "SSE"),
                       value = c(fit$df.residual, sigma, qt(0.5 + level / 2, fit$df.residual),
                                 sum((killed[evaluate] - pr$fit[evaluate, "fit"] - sb$VanKilled[evaluate])^2))),
            "seatbelts_stats.csv")
