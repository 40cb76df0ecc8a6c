# Writes the sample data sets in samples/ from R's datasets package (Debian's
# r-base-core): Rscript tools/samples.R [samples-directory]
args <- commandArgs(trailingOnly = TRUE)
dir <- if (length(args) > 0) args[1] else "samples"

# One row per observation: the first day of its month or quarter, then the value;
# a missing value is an empty cell.
write_series <- function(x, name, column) {
  months <- round((time(x) - floor(time(x))) * 12)
  dates <- sprintf("%04d-%02d-01", as.integer(floor(time(x) + 1e-9)), as.integer(months) + 1L)
  values <- ifelse(is.na(x), "", format(as.numeric(x), digits = 15, trim = TRUE))
  table <- data.frame(date = dates, value = values)
  names(table)[2] <- column
  write.csv(table, file.path(dir, paste0(name, ".csv")), row.names = FALSE, quote = FALSE)
}

write_series(datasets::AirPassengers, "airpassengers", "passengers")
write_series(datasets::co2, "co2", "co2")
write_series(datasets::UKgas, "ukgas", "gas")
write_series(datasets::presidents, "presidents", "approval")

# Weekly: the datasets package has no weekly series, so this one is made up: three
# years of Sunday weeks, a yearly cycle around a slow trend, rounded to tenths.
# Counted from the week that holds 4 January, 1997 has 53 weeks.
start <- as.Date("1997-01-05")
weeks <- 0:155
t <- as.numeric(start + 7 * weeks - as.Date("1997-01-01")) / 365.25
sales <- round(100 + 0.05 * weeks + 10 * sin(2 * pi * t) + 3 * cos(4 * pi * t), 1)
write.csv(data.frame(date = format(start + 7 * weeks), sales = sales),
          file.path(dir, "weekly.csv"), row.names = FALSE, quote = FALSE)
