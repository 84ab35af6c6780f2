module kestrune/goanalyzertest

go 1.19
