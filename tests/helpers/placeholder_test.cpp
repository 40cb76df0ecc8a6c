// Module helpers over the real host: host lists and data sets.
