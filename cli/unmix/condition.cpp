#include "unmix/condition.hpp"

#include <Eigen/SVD>

#include <limits>

namespace kscli {

double conditionNumber(const std::vector<double>& matrix, std::size_t columns) {
    using Rows = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    const auto count = static_cast<Eigen::Index>(columns);
    const auto rows = static_cast<Eigen::Index>(matrix.size() / columns);
    const Eigen::Map<const Rows> map(matrix.data(), rows, count);
    const Eigen::VectorXd singularValues = Eigen::JacobiSVD<Eigen::MatrixXd>(map).singularValues();
    const double smallest = singularValues(count - 1);
    return smallest > 0 ? singularValues(0) / smallest : std::numeric_limits<double>::infinity();
}

}  // namespace kscli
