module kestrune/goanalyzer

go 1.19
